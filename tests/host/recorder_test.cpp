#include "simulator/recorder.hpp"
#include "simulator/recording_file.hpp"

#include "scanlib/connection.hpp"
#include "scanlib/pointcloud.hpp"
#include "scanlib/rxpmarker.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <sstream>
#include <vector>

namespace simulator {
namespace {

/// Name of a file in a folder of its own, which goes with the object.
class scratch_file {
  public:
    scratch_file() {
        std::string pattern = (std::filesystem::temp_directory_path() / "rxp2k7-XXXXXX").string();
        folder_ = mkdtemp(pattern.data());
    }
    scratch_file(const scratch_file&) = delete;
    scratch_file& operator=(const scratch_file&) = delete;
    ~scratch_file() { std::filesystem::remove_all(folder_); }
    std::string name() const { return (folder_ / "scan.rxp").string(); }

  private:
    std::filesystem::path folder_;
};

recording_summary record(const scan_settings& settings, const std::string& name) {
    const auto file = std::make_shared<recording_file>(name);
    scanlib::packet_emitter emitter(std::make_shared<scanlib::encoder_rxpmarker>(
        file, scanlib::encoder_capacity, scanlib::encoder_headroom, true));
    recorder r(settings, emitter);
    const auto summary = r.run([](std::uint64_t) {});
    file->close();
    return summary;
}

std::string bytes_of(const std::string& name) {
    std::ifstream in(name, std::ios::binary);
    std::ostringstream all;
    all << in.rdbuf();
    return all.str();
}

/// Compares what the point-cloud engine makes of a recording with what was simulated.
class judge : public scanlib::pointcloud {
  public:
    explicit judge(const scan_settings& settings)
        : pointcloud(true), scene_(settings.seed), program_(settings) {}

    void read(const std::string& name) {
        const std::shared_ptr<scanlib::basic_rconnection> connection(
            scanlib::basic_rconnection::create(name, "", ""));
        scanlib::decoder_rxpmarker decoder(connection, scanlib::decoder_capacity,
                                           scanlib::decoder_headroom, true);
        scanlib::basic_buffer packet;
        for (decoder.get(packet); !decoder.packet_truncated(); decoder.get(packet)) {
            dispatch(packet.begin(), packet.end());
        }
    }

    std::uint64_t shots = 0;
    std::uint64_t echoes = 0;
    double worst_time = 0;
    double worst_distance = 0; ///< of points on the beam
    double worst_vertex = 0;   ///< of points as the scanner model places them
    std::uint64_t silent_shots = 0;
    std::uint64_t line_ends = 0;
    std::uint64_t rejected = 0; ///< echoes that the dynamic trigger took out
    std::set<std::uint16_t> zones;
    double strangest_reflectance = 0;

  protected:
    void on_shot() override {
        const double off = std::abs(time - program_.next().pps_time);
        // Not a comparison with max: NaN must show.
        worst_time = off <= worst_time ? worst_time : off;
        ++shots;
    }
    void on_echo_ready(scanlib::echo_position position) override {
        if (position == scanlib::echo_position::none) {
            ++silent_shots;
            return;
        }
        const scanlib::target& t = newest_target();
        if (std::isnan(t.echo_range)) {
            ++rejected;
            return;
        }
        take_worst(worst_distance, beam_origin + t.echo_range * beam_direction);
        take_worst(worst_vertex, {t.vertex[0], t.vertex[1], t.vertex[2]});
        zones.insert(t.mta_zone);
        line_ends += t.lineend;
        strangest_reflectance =
            std::max(strangest_reflectance, static_cast<double>(std::abs(t.reflectance)));
        ++echoes;
    }

  private:
    void take_worst(double& worst, const vector3& point) const {
        const double off = scene_.distance(point);
        worst = off <= worst ? worst : off;
    }

    scene scene_;
    scan_program program_;
};

class RecordingOfEachForm : public ::testing::TestWithParam<packet_form> {};

TEST_P(RecordingOfEachForm, PointsLieOnTheSurfacesAndTimesAreThoseOfThePulses) {
    const bool packed = GetParam() != packet_form::plain && GetParam() != packet_form::hr;
    const std::vector<std::uint64_t> seeds =
        packed ? std::vector<std::uint64_t>{1} : std::vector<std::uint64_t>{1, 2, 3, 4};
    for (const std::uint64_t seed : seeds) {
        scan_settings settings;
        settings.shots = packed ? 30000 : 60000;
        settings.pulse_rate = 50000; // so that the recording lasts some seconds
        settings.seed = seed;
        settings.form = GetParam();
        const scratch_file file;
        const auto recorded = record(settings, file.name());
        judge j(settings);
        j.read(file.name());
        EXPECT_EQ(j.shots, settings.shots);
        EXPECT_EQ(j.echoes, recorded.echoes);
        EXPECT_GT(j.echoes, settings.shots / 2);
        EXPECT_LT(j.worst_time, 1e-6);
        EXPECT_LE(j.worst_distance, 0.5001 * instrument::range_unit);
        EXPECT_LT(j.strangest_reflectance, 60);
        // Shots that tell their background radiation report that they have no echo.
        EXPECT_EQ(j.silent_shots != 0, GetParam() == packet_form::packed_rad);
    }
}

TEST_P(RecordingOfEachForm, FollowsFromItsSettingsByteForByte) {
    scan_settings settings;
    settings.shots = 5000;
    settings.form = GetParam();
    const scratch_file a;
    const scratch_file b;
    record(settings, a.name());
    record(settings, b.name());
    const std::string first = bytes_of(a.name());
    EXPECT_EQ(first, bytes_of(b.name()));
    settings.seed = 2;
    record(settings, b.name());
    EXPECT_NE(first, bytes_of(b.name()));
}

TEST_P(RecordingOfEachForm, KeepsTheTimeAcrossMidnight) {
    scan_settings settings;
    settings.shots = 20000;
    settings.pulse_rate = 20000;
    settings.start_time = 86398;
    settings.form = GetParam();
    const scratch_file file;
    record(settings, file.name());
    judge j(settings);
    j.read(file.name());
    EXPECT_EQ(j.shots, settings.shots);
    EXPECT_LT(j.worst_time, 1e-6);
}

/// A word of the command line as the name of a test.
std::string test_name(std::string_view word) {
    std::string name(word);
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

template<class Choice, std::size_t N>
std::vector<Choice> all_of(const std::array<named<Choice>, N>& list) {
    std::vector<Choice> all;
    for (const auto& entry : list) {
        all.push_back(entry.value);
    }
    return all;
}

template<class Choice, std::size_t N>
std::string name_of(const std::array<named<Choice>, N>& list, Choice value) {
    for (const auto& entry : list) {
        if (entry.value == value) {
            return test_name(entry.name);
        }
    }
    return "unknown";
}

INSTANTIATE_TEST_SUITE_P(Recorder, RecordingOfEachForm, ::testing::ValuesIn(all_of(packet_forms)),
                         [](const auto& about) { return name_of(packet_forms, about.param); });

/// The scene tells distances to first order, which errs a little along its edges.
constexpr double first_order = 1.05;

/// Points as 32-bit numbers, half a kilometre from the origin at most.
constexpr double vertex_rounding = 6e-5;

class RecordingOfEachModel : public ::testing::TestWithParam<mechanics> {};

TEST_P(RecordingOfEachModel, PointsLieOnTheSurfaces) {
    scan_settings settings;
    const bool fan = GetParam() == mechanics::mirrorwheel_fanbeam;
    settings.shots = fan ? 6000 : 20000;
    settings.pulse_rate = 25000;
    settings.seed = 5;
    settings.optics = GetParam();
    const scratch_file file;
    const auto recorded = record(settings, file.name());
    judge j(settings);
    j.read(file.name());
    EXPECT_EQ(j.shots, settings.shots);
    // The end of a line delivers the last target of a fan's shot once more.
    EXPECT_EQ(j.echoes - (fan ? j.line_ends : 0), recorded.echoes);
    EXPECT_GT(j.echoes, settings.shots / 3);
    EXPECT_LT(j.worst_time, 1e-6);
    const double unit = fan ? instrument::fan_range_unit : instrument::range_unit;
    EXPECT_LE(j.worst_vertex, first_order * 0.5 * unit + vertex_rounding);
    if (GetParam() == mechanics::mirrorwheel_biaxial) {
        // Its points lie beside the beam.
        EXPECT_GT(j.worst_distance, 0.001);
    } else {
        EXPECT_LE(j.worst_distance, first_order * 0.5 * unit);
    }
}

INSTANTIATE_TEST_SUITE_P(Recorder, RecordingOfEachModel,
                         ::testing::ValuesIn(all_of(mechanics_models)),
                         [](const auto& about) { return name_of(mechanics_models, about.param); });

class RecordingWithZones : public ::testing::TestWithParam<zone_telling> {};

TEST_P(RecordingWithZones, EachEchoFindsItsShot) {
    for (const packet_form form :
         {packet_form::hr, packet_form::packed_hr, packet_form::shot_echo}) {
        scan_settings settings;
        settings.shots = 60000;
        settings.lines_per_second = 1000;
        settings.form = form;
        settings.zones = 5;
        settings.zones_by = GetParam();
        settings.pulse_rate = pulse_rate_for(settings.zones);
        const scratch_file file;
        const auto recorded = record(settings, file.name());
        judge j(settings);
        j.read(file.name());
        EXPECT_EQ(j.shots, settings.shots);
        EXPECT_EQ(j.echoes, recorded.echoes);
        EXPECT_GT(j.echoes, 1000U);
        EXPECT_EQ(j.zones, (std::set<std::uint16_t>{0, 1, 2, 3, 4}));
        EXPECT_LE(j.worst_distance, first_order * 0.5 * instrument::range_unit);
    }
}

INSTANTIATE_TEST_SUITE_P(Recorder, RecordingWithZones,
                         ::testing::Values(zone_telling::gates, zone_telling::number),
                         [](const auto& about) {
                             return about.param == zone_telling::gates ? std::string("ByGates")
                                                                       : std::string("ByNumber");
                         });

class RecordingWithEachFault : public ::testing::TestWithParam<correction> {};

TEST_P(RecordingWithEachFault, CorrectedPointsLieOnTheSurfaces) {
    scan_settings settings;
    settings.shots = 20000;
    settings.calibration = {GetParam()};
    const scratch_file file;
    const auto recorded = record(settings, file.name());
    judge j(settings);
    j.read(file.name());
    EXPECT_EQ(j.echoes, recorded.echoes);
    EXPECT_GT(j.echoes, settings.shots / 2);
    // Where a range falls on an entry of the near-range table, the told counter is one aside.
    const double counts = GetParam() == correction::near_range ? 1.5 : 0.5;
    EXPECT_LE(j.worst_distance, first_order * counts * instrument::range_unit);
    const bool dynamic_trigger = GetParam() == correction::dynamic_trigger ||
                                 GetParam() == correction::dynamic_trigger_tables;
    EXPECT_EQ(j.rejected, dynamic_trigger ? recorded.artefacts : 0);
    const bool notch = GetParam() == correction::notch || GetParam() == correction::angular_notch;
    EXPECT_EQ(recorded.artefacts > 1000, dynamic_trigger || notch);
}

INSTANTIATE_TEST_SUITE_P(Recorder, RecordingWithEachFault, ::testing::ValuesIn(all_of(corrections)),
                         [](const auto& about) { return name_of(corrections, about.param); });

TEST(EchoesInFlight, LandInOrderOfReturnBeforeTheNextShot) {
    scan_settings settings;
    settings.form = packet_form::hr;
    const instrument clock(settings);
    const double count = clock.range_between(0, 1);
    const auto ticks_for = [&](double range) {
        return static_cast<std::uint64_t>(std::ceil(range / count));
    };
    const auto launched = [](double range) {
        received_echo e{};
        e.range = range;
        return e;
    };
    echoes_in_flight echoes;
    echoes.launch(0, launched(170));
    echoes.launch(0, launched(120));
    echoes.launch(ticks_for(50), launched(60)); // returns between these two
    EXPECT_TRUE(echoes.land(ticks_for(100), clock).empty());
    const auto& landed = echoes.land(ticks_for(150), clock);
    ASSERT_EQ(landed.size(), 2U);
    EXPECT_EQ(landed[0].echo.range, 60);
    EXPECT_EQ(landed[1].echo.range, 120);
    EXPECT_EQ(echoes.land(ticks_for(200), clock).size(), 1U);
    EXPECT_TRUE(echoes.land(ticks_for(300), clock).empty());
    echoes.launch(ticks_for(300), launched(10));
    echoes.clear();
    EXPECT_TRUE(echoes.land(ticks_for(400), clock).empty());
}

TEST(Instrument, CounterDifferencesGoAcrossTheEndOfTheCircle) {
    scan_settings settings;
    settings.form = packet_form::hr;
    const instrument clock(settings);
    const std::uint64_t last = (std::uint64_t{1} << clock.units().hr) - 1;
    EXPECT_DOUBLE_EQ(clock.range_between(last, 9), clock.range_between(0, 10));
    // A microsecond is 150 m to and fro.
    EXPECT_NEAR(clock.range_between(0, 5242880), 149.85, 0.01);
}

TEST(Calibration, ToldCountersLieOffByWhatTheTablesAdd) {
    scan_settings settings;
    settings.calibration = {correction::near_range, correction::amplitude_range};
    const instrument scanner(settings);
    const calibration faults(settings, scanner.units());
    received_echo e{};
    e.amplitude = 4100; // entry 20 of the table over amplitudes, which adds 60 counts
    e.range = 300;      // beyond the table over ranges
    EXPECT_EQ(faults.told_counter(e, 0), 1200000 - 60);
    EXPECT_EQ(faults.told_counter(e, 200), 400000 - 60);
    e.range = 2; // told too far by 3 cm that fall to a third in 4 m
    EXPECT_NEAR(faults.told_counter(e, 0), (2 + 0.03 * std::exp(-2 / 4.0)) / 0.00025 - 60, 2);
}

TEST(Settings, ThatContradictEachOtherAreRefused) {
    const auto refused = [](auto change) {
        scan_settings settings;
        change(settings);
        try {
            check(settings);
        } catch (const std::invalid_argument&) {
            return true;
        }
        return false;
    };
    EXPECT_FALSE(refused([](scan_settings&) {}));
    EXPECT_TRUE(refused([](auto& s) {
        s.optics = mechanics::mirrorwheel_fanbeam;
        s.form = packet_form::packed;
    }));
    EXPECT_TRUE(refused([](auto& s) {
        s.optics = mechanics::mirrorwheel_fanbeam;
        s.calibration = {correction::notch};
    }));
    EXPECT_TRUE(refused([](auto& s) {
        s.form = packet_form::packed;
        s.zones = 2;
        s.pulse_rate = 1e6;
    }));
    EXPECT_TRUE(refused([](auto& s) {
        s.form = packet_form::hr;
        s.zones = 3;
        s.pulse_rate = 300000;
    }));
    EXPECT_TRUE(refused([](auto& s) {
        s.calibration = {correction::near_range, correction::range_grid};
    }));
    EXPECT_TRUE(refused([](auto& s) {
        s.calibration = {correction::notch, correction::angular_notch};
    }));
    EXPECT_TRUE(refused([](auto& s) {
        s.calibration = {correction::dynamic_trigger, correction::dynamic_trigger_tables};
    }));
    EXPECT_TRUE(refused([](auto& s) { s.calibration = {correction::waveform}; }));
    EXPECT_TRUE(refused([](auto& s) { s.waveforms = waveform_form::channel; }));
    EXPECT_TRUE(refused([](auto& s) {
        s.waveforms = waveform_form::parameters;
        s.form = packet_form::hr;
    }));
    EXPECT_TRUE(refused([](auto& s) {
        s.waveforms = waveform_form::subpackages;
        s.form = packet_form::shot_echo;
    }));
    EXPECT_TRUE(refused([](auto& s) {
        s.waveforms = waveform_form::parameters;
        s.optics = mechanics::mirrorwheel_fanbeam;
    }));
    EXPECT_TRUE(refused([](auto& s) {
        s.waveforms = waveform_form::channel;
        s.form = packet_form::hr;
        s.zones = 2;
        s.pulse_rate = pulse_rate_for(2);
    }));
    for (const auto& entry : waveform_forms) {
        EXPECT_FALSE(refused([&](auto& s) {
            s.waveforms = entry.value;
            s.form = plainest_form(s);
            s.calibration = {correction::waveform};
        })) << entry.name;
    }
}

TEST(Recorder, CountersWrapWithoutATrace) {
    // Some seeds start near the end of the counter's circle.
    int wrapped = 0;
    for (std::uint64_t seed = 0; seed < 2000 && wrapped < 3; ++seed) {
        scan_settings settings;
        settings.seed = seed;
        settings.shots = 5000;
        settings.pulse_rate = 5000;
        const instrument i(settings);
        const scan_program p(settings);
        const double end = settings.start_time + p.duration();
        if (i.system_counter(end) >= i.system_counter(settings.start_time)) {
            continue;
        }
        ++wrapped;
        for (const packet_form form : {packet_form::plain, packet_form::hr, packet_form::packed,
                                       packet_form::packed_hr, packet_form::shot_echo}) {
            settings.form = form;
            const scratch_file file;
            record(settings, file.name());
            judge j(settings);
            j.read(file.name());
            EXPECT_EQ(j.shots, settings.shots);
            EXPECT_LT(j.worst_time, 1e-6) << "seed " << seed;
        }
    }
    EXPECT_EQ(wrapped, 3);
}

TEST(Recorder, WritesAWholeStreamForNoShots) {
    scan_settings settings;
    settings.shots = 0;
    const scratch_file file;
    const auto recorded = record(settings, file.name());
    EXPECT_EQ(recorded.shots, 0U);
    EXPECT_EQ(bytes_of(file.name()).size() % 4, 0U);
    judge j(settings);
    j.read(file.name());
    EXPECT_EQ(j.shots, 0U);
}

TEST(ScanProgram, ShotsLieInTheMeasuredPartOfTheFacetsInTurn) {
    scan_settings settings;
    settings.shots = 10000;
    scan_program p(settings);
    double before = 0;
    for (std::uint64_t n = 0; n < settings.shots; ++n) {
        const shot s = p.next();
        ASSERT_GT(s.pps_time, before);
        before = s.pps_time;
        ASSERT_EQ(s.line_counter / scan_program::counts_per_facet, s.line % scan_program::facets);
        const double way = s.line_counter % scan_program::counts_per_facet *
                           (scan_program::facet_way / scan_program::counts_per_facet);
        ASSERT_GE(way, scan_program::first_angle - 0.001);
        ASSERT_LE(way, scan_program::last_angle + 0.001);
        ASSERT_LT(s.frame_counter, scan_program::frame_circle_count);
    }
    EXPECT_LE(before, settings.start_time + p.duration());
}

TEST(ScanProgram, RefusesLinesWithoutShots) {
    scan_settings settings;
    settings.pulse_rate = 1000;
    settings.lines_per_second = 1000;
    EXPECT_THROW(scan_program{settings}, std::invalid_argument);
}

TEST(Instrument, EchoesWeakenWithRangeUntilTheyDrown) {
    const scan_settings settings;
    const instrument i(settings);
    random_source random(1);
    received_echo near{};
    received_echo far{};
    ASSERT_TRUE(i.receive({20, 1, material::wall}, 0, random, near));
    ASSERT_TRUE(i.receive({200, 1, material::wall}, 0, random, far));
    EXPECT_GT(near.amplitude, far.amplitude + 1500);
    EXPECT_EQ(far.range, 200);
    EXPECT_FALSE(i.receive({50000, 1, material::water}, 0, random, far));
}

TEST(RecordingFile, TellsAFullDiskWithPathAndReason) {
    recording_file file("/dev/full");
    const std::string data(100000, 'x');
    try {
        file.write(data.data(), static_cast<std::int64_t>(data.size()));
        file.close();
        FAIL() << "the failure went unnoticed";
    } catch (const output_error& e) {
        EXPECT_STREQ(e.what(), "cannot write \"/dev/full\": No space left on device");
    }
}

TEST(RecordingFile, TellsAFolderThatIsNotThere) {
    EXPECT_THROW(recording_file("/no such folder/scan.rxp"), output_error);
}

} // namespace
} // namespace simulator
