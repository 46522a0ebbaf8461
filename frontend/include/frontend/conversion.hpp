#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "bundle_interface/export.hpp"
#include "bundle_interface/holdfast.hpp"
#include "bundle_interface/skein.hpp"
#include "frontend/recording_files.hpp"

/// The exported operations, and the attributes that they store.
namespace Riegl {

/// One way in which data were lost or doubted during a conversion.
struct Loss {
    std::string name;     ///< short name, the same in every run
    std::string sentence; ///< one sentence for the user
    std::uint64_t count;  ///< number of cases, above 0
    std::uint64_t
        first_offset; ///< bytes from the start of the stream to the packet of the first case
};

/// What a conversion did, for the host's closing words.
struct ConversionSummary {
    std::filesystem::path output; ///< the bundle file
    bool interrupted = false;  ///< the stream ended by a failure; what was read before it is stored
    std::string cause;         ///< text of that failure
    bool store_failed = false; ///< the bundle file is not complete
    /// A StreamControl ended a recording before its end: the bundle file stays as its .part,
    /// complete up to `offset`, and one of an earlier run stays beside it.
    bool stopped = false;
    /// The stream could not be opened: no bundle file was made, one of an earlier run stays.
    bool abandoned = false;
    std::uint64_t offset =
        0; ///< bytes from the start of the stream to the end of the last packet taken
    std::uint64_t shots = 0;     ///< rows stored in "Shots"
    std::uint64_t echoes = 0;    ///< rows stored in "OPP"
    std::uint64_t waveforms = 0; ///< rows stored in "Waveforms"
    std::uint64_t fragments = 0; ///< fragments stored, skipped and empty ones not counted
    std::uint64_t bytes_in = 0;  ///< bytes that the connection delivered
    std::uint64_t bytes_out = 0; ///< size of the bundle file
    std::vector<Loss> losses;    ///< kinds of loss that occurred
    RecordingFiles recording;    ///< where it was read from
};

struct InspectionSummary; // frontend/inspection.hpp

/// Hold on a stream that is being converted. May be used from any thread, and when the conversion
/// has ended.
class RXP2K7_EXPORT StreamControl {
  public:
    StreamControl() = default;
    StreamControl(const StreamControl&) = delete;
    StreamControl& operator=(const StreamControl&) = delete;
    virtual ~StreamControl();

    /// Asks the stream to end at a packet boundary. A live stream ends with the next data that
    /// arrive, and the conversion as at the end of the stream. A recording ends at once (one from
    /// a pipe with its next data), and with it the conversion, whose bundle file then keeps the
    /// name of one that is not whole.
    virtual void stop() = 0;
    /// Breaks the stream off, also while nothing arrives. What was read is stored. The same as stop
    /// for a recording.
    virtual void cancel() = 0;
};

/// Receiver of progress reports; the host implements it. Called on the thread of the conversion.
class RXP2K7_EXPORT ProgressMonitor : public Holdfast::ReferenceBase<ProgressMonitor> {
  public:
    ProgressMonitor();
    ~ProgressMonitor() override;

    /// Tells that `current` of about `total` steps of the work `label` are done. `total` is an
    /// estimate.
    virtual void report(const std::string& label, int current, int total) = 0;

    /// Tells once, at the end, what the conversion did. Empty by default.
    virtual void summarise(const ConversionSummary& summary);

    /// Tells once, at the end, what an inspection drew. Empty by default.
    virtual void inspected(const InspectionSummary& summary);

    /// Tells once, before a conversion opens its stream, how to end it. Empty by default.
    virtual void connecting(const std::shared_ptr<StreamControl>& stream);
};

/// Parameters of the exported operations. The caller owns it; it outlives the call and serves one
/// call at a time.
struct RXP2K7_EXPORT Input {
    Holdfast::StrongPtr<ProgressMonitor> Progress; ///< receiver of progress reports, may be empty
    Holdfast::StrongPtr<Skein::StorageTransformations>
        Transformations;                     ///< storage of the bundle, may be empty
    std::uint32_t FragSize = 100000;         ///< rows after which a fragment is cut
    bool ExportFWF = true;                   ///< make the grid "Waveforms"
    bool ExportOPP = true;                   ///< make the grid "OPP"
    std::uint32_t Exported_FWF_LENGTH = 256; ///< waveform samples kept per row
    std::filesystem::path OutDir;            ///< folder of the bundle file
    Holdfast::StrongPtr<Skein::DataRange<double>>
        TimeRange;                  ///< seconds; fragments wholly inside are skipped
    std::filesystem::path ErrorLog; ///< file to append warnings to, may be empty
    std::string Errors;             ///< warnings and errors so far, no separator

    /// The record as text, one line a member.
    std::string speak() const;
};

/// Converts the RXP stream `file` into one bundle file OutDir / (stem + ".k7").
///
/// One pass over the stream on the caller's thread. Returns an empty text when the stream was
/// converted or its failure was reported through `input.Errors`, the log and the console (what was
/// read before it is stored then), else an error text. Throws std::exception when the bundle file
/// or the connection cannot be made. A bundle file of an earlier run stays as it is unless the
/// stream could be opened.
RXP2K7_EXPORT std::string rxpToSkeinK7(const std::filesystem::path& file, Input& input);

} // namespace Riegl
