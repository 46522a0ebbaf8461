#pragma once

#include <cstdint>
#include <filesystem>
#include <sstream>
#include <string>

#include "bundle_interface/rdb2skein.hpp"
#include "frontend/conversion.hpp"
#include "scan_attributes.hpp"
#include "scanlib/pointcloud.hpp"
#include "staging.hpp"

namespace Riegl {

/// Consumer of the packets in a conversion: copies each shot and echo into the staging columns,
/// cuts fragments, and at the end writes the last fragment and the scan attributes.
///
/// Times are the synchronised ones, so that shots before the first synchronisation give no rows.
/// Rows of the grids are not linked by index; they share the time in "GPSTime".
class WFM : public scanlib::pointcloud {
  public:
    /// Creates the output file. `input` and `summary` outlive this object; `input.Errors` and the
    /// counts of `summary` are written through it. Throws what the bundle throws when the file
    /// cannot be made.
    WFM(Input& input, const std::filesystem::path& file, bool leap_flag,
        ConversionSummary& summary);
    ~WFM() override;
    WFM(const WFM&) = delete;
    WFM& operator=(const WFM&) = delete;

    /// After each packet with `final` false: stores the staged rows as a fragment once one grid has
    /// reached FragSize rows. At the end, once, with true: stores what is left and the scan
    /// attributes. Returns an error text, empty when all is well; passes the bundle's exceptions
    /// through.
    std::string shall_we_write(bool final);

    /// Finishes the output file. Throws when that fails.
    void finish() { writer_.finish(); }

    BundleWriter& writer() noexcept { return writer_; }

    std::ostringstream meta_stream; ///< JSON metadata, written by the driver

    void on_shot() override;
    void on_echo_ready(scanlib::echo_position position) override;
    void on_header(scanlib::packets::header& p, const std::uint32_t* end) override;
    void on_atmosphere_4(scanlib::packets::atmosphere_4& p) override;
    void on_hk_extended_external(scanlib::packets::hk_extended_external& p) override;

  private:
    std::string flush_staging();
    void settle_fragment();
    bool lies_inside_time_range() const;
    std::string write_scan_attributes();

    Input* input_;
    std::filesystem::path file_;
    bool leap_flag_;
    BundleWriter writer_;
    std::uint32_t opp_count_ = 0;
    std::uint32_t wave_count_ = 0;
    std::uint32_t shots_count_ = 0;
    std::uint32_t fragment_number_ = 0;
    AttributesForFWFProcessing attributes_;
    std::int32_t date_code_;
    ReflectanceAmplitudeAttributes parsed_;
    ConversionSummary* summary_;
    /// Rows of the fragment that is on its way to the file.
    struct {
        std::uint32_t shots = 0;
        std::uint32_t echoes = 0;
        std::uint32_t waveforms = 0;
    } under_way_;
};

} // namespace Riegl
