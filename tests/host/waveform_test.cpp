// Recordings with waveforms as the waveform engine reads them, against the samples they were made
// from.
#include "simulator/recorder.hpp"
#include "simulator/recording_file.hpp"

#include "scanlib/connection.hpp"
#include "scanlib/loss_log.hpp"
#include "scanlib/rxpmarker.hpp"
#include "scanlib/wave.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <vector>

namespace simulator {
namespace {

constexpr double sample_time = 1 / 640e6;

/// A recording in a folder of its own, which goes with the object, and what it was made from.
class recording {
  public:
    explicit recording(const scan_settings& settings) {
        std::string pattern = (std::filesystem::temp_directory_path() / "rxp2k7-XXXXXX").string();
        folder_ = mkdtemp(pattern.data());
        const auto file = std::make_shared<recording_file>(name());
        scanlib::packet_emitter emitter(std::make_shared<scanlib::encoder_rxpmarker>(
            file, scanlib::encoder_capacity, scanlib::encoder_headroom, true));
        recorder r(settings, emitter);
        r.listen([&](const shot& s, const sampled_shot& sampled) {
            times.push_back(s.pps_time);
            shots.push_back(sampled);
        });
        summary = r.run([](std::uint64_t) {});
        file->close();
    }
    recording(const recording&) = delete;
    recording& operator=(const recording&) = delete;
    ~recording() { std::filesystem::remove_all(folder_); }

    std::string name() const { return (folder_ / "scan.rxp").string(); }

    recording_summary summary;
    std::vector<double> times;
    std::vector<sampled_shot> shots;

  private:
    std::filesystem::path folder_;
};

/// Compares what the engine delivers with what was sampled.
class judge : public scanlib::wave {
  public:
    judge(const recording& made, waveform_form form) : wave(true, true), made_(made), form_(form) {
        set_loss_log(&losses);
    }

    void read() {
        const std::shared_ptr<scanlib::basic_rconnection> connection(
            scanlib::basic_rconnection::create(made_.name(), "", ""));
        scanlib::decoder_rxpmarker decoder(connection, scanlib::decoder_capacity,
                                           scanlib::decoder_headroom, true);
        scanlib::basic_buffer packet;
        for (decoder.get(packet); !decoder.packet_truncated(); decoder.get(packet)) {
            dispatch(packet.begin(), packet.end());
        }
    }

    scanlib::loss_log losses;
    std::size_t blocks = 0; ///< with samples
    std::size_t empty = 0;  ///< shots that found no block
    std::size_t runs = 0;
    std::size_t bad_runs = 0;       ///< whose samples differ
    std::size_t bad_peaks = 0;      ///< of the header
    std::size_t a_sample_aside = 0; ///< runs that begin a whole sample beside the truth
    double worst_start = 0;         ///< s, of the other runs
    double worst_reference = 0;     ///< s, of the first record's time

    double reference_time() const { return t_null_pdae; }
    const std::vector<scanlib::wave_channel>& told_channels() const { return channels; }
    const calibration_slot& table(std::size_t slot) const { return wave_calibration[slot]; }

  protected:
    void on_wave(scanlib::wave_block& block) override {
        const bool fixed = has_fixed_channels();
        if (block.records.size() == 1 && block.records.front().samples.empty()) {
            ++empty;
            return;
        }
        ASSERT_LT(blocks, made_.shots.size());
        const sampled_shot& truth = made_.shots[blocks];
        ASSERT_NEAR(block.time, made_.times[blocks], 1e-6);
        ++blocks;
        check_peaks(block, truth);
        // With fixed channels the head itself makes two records.
        const std::size_t of_head = fixed ? 2 : 0;
        ASSERT_EQ(block.records.size(), truth.runs().size() + of_head);
        if (fixed) {
            check_head(block);
        }
        for (std::size_t i = 0; i < truth.runs().size(); ++i) {
            check_run(block.records[of_head + i], truth.runs()[i], truth.phase);
        }
    }

  private:
    bool has_fixed_channels() const {
        return form_ == waveform_form::parameters || form_ == waveform_form::hr ||
               form_ == waveform_form::parameters_compressed ||
               form_ == waveform_form::hr_compressed;
    }
    bool is_compressed() const {
        return form_ == waveform_form::parameters_compressed ||
               form_ == waveform_form::hr_compressed ||
               form_ == waveform_form::channel_compressed || form_ == waveform_form::subpackages;
    }

    void check_head(const scanlib::wave_block& block) {
        const scanlib::wave_record& reference = block.records[0];
        EXPECT_EQ(reference.channel, 3U);
        // 24 samples less a quarter of one, where the head tells it.
        const double in_samples = is_high_resolution(form_) ? 0 : 24 - 0.25;
        worst_reference =
            std::max(worst_reference, std::abs(reference.time_sorg - t_null_pdae -
                                               in_samples * told_channels()[3].sampling_time));
        EXPECT_EQ(block.records[1].channel, 2U);
        EXPECT_EQ(block.records[1].samples.size(), 1U);
    }

    void check_run(const scanlib::wave_record& r, const sample_run& truth, double phase) {
        ++runs;
        EXPECT_EQ(r.channel, truth.channel);
        EXPECT_EQ(r.is_compressed, 0);
        std::vector<std::uint16_t> found = r.samples;
        std::vector<std::uint16_t> expected(truth.samples().begin(), truth.samples().end());
        if (is_compressed()) {
            // Steps are counted modulo the resolution, and whole groups are told.
            for (std::uint16_t& v : found) {
                v &= 0xFFF;
            }
            expected.resize((expected.size() + 7) / 8 * 8, expected.back());
        }
        bad_runs += found != expected;
        const double off = std::abs(r.time_sorg - (truth.first * sample_time - phase));
        if (std::abs(off - sample_time) < 1e-12) {
            ++a_sample_aside;
        } else {
            worst_start = std::max(worst_start, off);
        }
    }

    void check_peaks(const scanlib::wave_block& block, const sampled_shot& truth) {
        const std::size_t told = has_fixed_channels()
                                     ? std::min<std::size_t>(2, truth.pulses.size())
                                     : truth.pulses.size();
        const double amplitude_unit =
            form_ == waveform_form::channel || form_ == waveform_form::channel_compressed ? 0.0625
                                                                                          : 0.25;
        ASSERT_GE(block.peaks.size(), told);
        for (std::size_t i = 0; i < told; ++i) {
            const auto& [position, amplitude] = block.peaks[i];
            bad_peaks +=
                !(std::abs(position - truth.pulses[i].position) <= 0.0313 &&
                  std::abs(amplitude - truth.pulses[i].amplitude) <= 0.5001 * amplitude_unit);
        }
        if (form_ == waveform_form::channel_1 || form_ == waveform_form::subpackages) {
            ASSERT_EQ(block.peaks.size(), 16U);
            EXPECT_TRUE(std::isnan(block.peaks[told].first));
        }
    }

    const recording& made_;
    waveform_form form_;
};

void expect_same(const scan_settings& settings) {
    const recording made(settings);
    judge j(made, settings.waveforms);
    j.read();
    EXPECT_EQ(j.blocks, settings.shots);
    EXPECT_EQ(j.runs, made.summary.waveforms);
    EXPECT_GT(j.runs, 2 * settings.shots);
    EXPECT_EQ(j.bad_runs, 0U);
    EXPECT_EQ(j.bad_peaks, 0U);
    // A count of the high-resolution time is 0.2 ps; of the plain one, which tells no phase, 0.
    EXPECT_LT(j.worst_start, 1e-12);
    // Fixed channels cut the shot's time off to whole counts, which may be the sample before.
    EXPECT_LE(j.a_sample_aside, settings.waveforms == waveform_form::hr ||
                                        settings.waveforms == waveform_form::hr_compressed
                                    ? 3 * settings.shots / 1000
                                    : 0);
    EXPECT_LT(j.worst_reference, 1e-12);
    EXPECT_EQ(j.empty, 0U);
    for (const scanlib::loss cause :
         {scanlib::loss::block_without_shot, scanlib::loss::samples_without_block}) {
        EXPECT_EQ(j.losses.count(cause), 0U);
    }
}

std::string test_name(std::string_view word) {
    std::string name(word);
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

template<class Choice, std::size_t N>
std::string name_of(const std::array<named<Choice>, N>& list, Choice value) {
    const auto* const found =
        std::find_if(list.begin(), list.end(), [&](const auto& e) { return e.value == value; });
    return found == list.end() ? "unknown" : test_name(found->name);
}

class WaveformsOfEachForm : public ::testing::TestWithParam<named<waveform_form>> {};

TEST_P(WaveformsOfEachForm, ComeBackSampleForSample) {
    scan_settings settings;
    settings.shots = 6000;
    settings.waveforms = GetParam().value;
    settings.form = plainest_form(settings);
    expect_same(settings);
}

INSTANTIATE_TEST_SUITE_P(Recorder, WaveformsOfEachForm, ::testing::ValuesIn(waveform_forms),
                         [](const auto& about) { return test_name(about.param.name); });

class WaveformsWithPackedShots
    : public ::testing::TestWithParam<std::pair<packet_form, waveform_form>> {};

TEST_P(WaveformsWithPackedShots, FindTheirShots) {
    scan_settings settings;
    settings.shots = 6000;
    settings.form = GetParam().first;
    settings.waveforms = GetParam().second;
    expect_same(settings);
}

using both = std::pair<packet_form, waveform_form>;
INSTANTIATE_TEST_SUITE_P(
    Recorder, WaveformsWithPackedShots,
    ::testing::Values(both{packet_form::packed, waveform_form::parameters},
                      both{packet_form::packed_rad, waveform_form::parameters_compressed},
                      both{packet_form::packed_hr, waveform_form::channel},
                      both{packet_form::shot_echo, waveform_form::hr},
                      both{packet_form::shot_echo_blocks, waveform_form::channel_1}),
    [](const auto& about) {
        return name_of(packet_forms, about.param.first) + "_" +
               name_of(waveform_forms, about.param.second);
    });

TEST(WaveformChannels, AreToldWithTheirPulseModels) {
    for (const waveform_form form : {waveform_form::channel, waveform_form::parameters}) {
        scan_settings settings;
        settings.shots = 100;
        settings.waveforms = form;
        settings.form = plainest_form(settings);
        const recording made(settings);
        judge j(made, form);
        j.read();
        const auto& channels = j.told_channels();
        ASSERT_EQ(channels.size(), 4U);
        EXPECT_EQ(channels[0].name, "high_power");
        EXPECT_EQ(channels[1].name, "low_power");
        EXPECT_EQ(channels[3].name, "reference");
        for (const std::size_t i : {0UL, 1UL, 3UL}) {
            EXPECT_NEAR(channels[i].sampling_time, sample_time, 1e-16);
            EXPECT_EQ(channels[i].adc_resolution_bits, 12U);
            EXPECT_NEAR(channels[i].wavelength, 1550e-9, 1e-13);
            EXPECT_NEAR(channels[i].delta_st, 3.25e-9, 1e-16);
            EXPECT_EQ(channels[i].ticks_per_sample, 8192U);
        }
        EXPECT_EQ(channels[1].expsum_ab.size(), 3U);
        EXPECT_EQ(channels[1].expsum_gw.size(), 3U);
        EXPECT_EQ(channels[0].expsum_ab.empty(), form == waveform_form::parameters);
        EXPECT_EQ(channels[1].a_lin, form == waveform_form::parameters ? 0.4 : 0.37);
        EXPECT_NEAR(j.reference_time(), 3.25e-9, 1e-16);
        EXPECT_TRUE(j.table(0).first.empty());
    }
}

TEST(WaveformCalibration, FillsEverySlotAndTellsTheTimeOfTheReferencePulse) {
    scan_settings settings;
    settings.shots = 100;
    settings.waveforms = waveform_form::channel;
    settings.form = plainest_form(settings);
    settings.calibration = {correction::waveform};
    const recording made(settings);
    judge j(made, settings.waveforms);
    j.read();
    for (std::size_t slot = 0; slot < 5; ++slot) {
        EXPECT_EQ(j.table(slot).first.size(), 9U);
        EXPECT_EQ(j.table(slot).second.size(), 9U);
    }
    // 27 is the fifth in order of the first eight of -40, 25, 31, 12, 28, -3, 30, 27, 500.
    EXPECT_NEAR(j.reference_time(), 2e-9 - 27 * 1e-11, 1e-18);
}

} // namespace
} // namespace simulator
