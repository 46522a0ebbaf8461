#pragma once

#include "scanlib/packet_catalogue.hpp"
#include "scanlib/packet_emitter.hpp"
#include "simulator/digitiser.hpp"
#include "simulator/settings.hpp"
#include "simulator/shot_writer.hpp"

#include <cstdint>
#include <vector>

namespace simulator {

/// Writes the tables of calibration that come with waveforms; the last of them tells the time of
/// the reference pulse.
void tell_waveform_tables(scanlib::packet_emitter& out);

/// Writes the waveforms of shots as sample blocks of one of the forms.
class waveform_writer {
  public:
    static constexpr float reference_delay = 3.25e-09F; ///< s, that channels tell

    /// `out` and `shots` outlive the writer.
    waveform_writer(waveform_form form, scanlib::packet_emitter& out, shot_writer& shots);

    /// Kinds that stand in the stream once a shot or more often.
    std::vector<scanlib::packet_index> frequent_kinds() const;

    /// Writes the channels and their pulse models. The air must stand before them.
    void tell() const;

    /// Writes the sample blocks of a shot. In subpackages, the shot must be the newest one there.
    void write(const sampled_shot& s);

  private:
    void tell_fixed_channels() const;
    void tell_channels() const;
    void write_head(const sampled_shot& s);
    void write_subpackage_head(const sampled_shot& s);
    void write_run(const sample_run& run);
    template<class Writer>
    void write_plain(const sample_run& run);
    template<class Writer>
    void write_packed(const sample_run& run);
    template<class Writer, class First>
    void write_compressed(const sample_run& run);
    void write_subpackage(const sample_run& run);
    bool compress(const sample_run& run, std::size_t head_words);

    waveform_form form_;
    scanlib::packet_emitter& out_;
    shot_writer& shots_;
    std::vector<std::uint32_t> words_;      ///< payload in progress
    std::vector<std::uint16_t> compressed_; ///< the same in halves
};

} // namespace simulator
