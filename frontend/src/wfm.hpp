#pragma once

#include <algorithm>
#include <complex>
#include <cstdint>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "bundle_interface/rdb2skein.hpp"
#include "frontend/conversion.hpp"
#include "scan_attributes.hpp"
#include "scanlib/wave.hpp"
#include "staging.hpp"

namespace Riegl {

/// Consumer of the packets in a conversion: copies each shot, echo and waveform into the staging
/// columns, cuts fragments, and at the end writes the last fragment and the scan attributes.
///
/// Times are the synchronised ones, so that shots before the first synchronisation give no rows.
/// Rows of the grids are not linked by index; they share the time in "GPSTime".
class WFM : public scanlib::wave {
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
    std::string shall_we_write(bool final) {
        return final || has_full_grid() ? write_rows(final) : std::string();
    }

    /// Finishes the output file. Throws when that fails.
    void finish() { writer_.finish(); }

    BundleWriter& writer() noexcept { return writer_; }

    /// Numbers of rows staged at a moment, and the samples of the longest waveform.
    struct Rows {
        std::uint32_t shots = 0;
        std::uint32_t echoes = 0;
        std::uint32_t waveforms = 0;
        std::uint32_t longest_waveform = 0;
    };
    Rows staged() const noexcept {
        return {shots_count_, opp_count_, wave_count_, writer_.longest_waveform()};
    }
    /// Drops the rows staged since, for a packet that turned out to be broken.
    void unstage(const Rows& rows);

    std::ostringstream meta_stream; ///< JSON metadata, written by the driver

    void on_shot() override;
    void on_echo_ready(scanlib::echo_position position) override;
    void on_header(scanlib::packets::header& p, const std::uint32_t* end) override;
    void on_atmosphere_4(scanlib::packets::atmosphere_4& p) override;
    void on_sbl_dg_channel_expsum_1(scanlib::packets::sbl_dg_channel_expsum_1& p) override;
    void on_hk_extended_external(scanlib::packets::hk_extended_external& p) override;

  protected:
    void on_wave(scanlib::wave_block& block) override;

  private:
    bool has_full_grid() const noexcept {
        return std::max({shots_count_, opp_count_, wave_count_}) >= input_->FragSize;
    }
    std::string write_rows(bool final);
    void keep_coefficients();
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
    Rows under_way_; ///< rows of the fragment that is on its way to the file
    std::vector<std::complex<double>> SysWaveA; ///< pulse model
    std::vector<std::complex<double>> SysWaveB;
};

} // namespace Riegl
