#pragma once

#include <array>
#include <cstdint>
#include <set>
#include <string_view>

namespace simulator {

/// How shots and echoes stand in the stream.
enum class packet_form : std::uint8_t {
    plain,            ///< a packet for each, 32-bit time
    hr,               ///< a packet for each, high-resolution time
    packed,           ///< keys and differences, 32-bit time
    packed_rad,       ///< the same with the background radiation of each shot
    packed_hr,        ///< keys and differences, high-resolution time
    shot_echo,        ///< shots and echoes in one stream of differences, high-resolution time
    shot_echo_blocks, ///< the same in the form that has room for sample blocks
};

/// Whether a form tells the high-resolution time.
bool is_high_resolution(packet_form form) noexcept;

/// The scanner's optics.
enum class mechanics : std::uint8_t {
    mirrorwheel,
    mirrorwheel_exitpane,
    mirrorwheel_deflection,
    mirrorwheel_biaxial,
    mirrorwheel_nodding,
    gimbalmountmirror,
    wedge,
    mirrorwheel_windowdistortion,
    mirrorwheel_deflection_windowdistortion,
    wedge_scanconedistortion,
    mirrorwheel_scanconedistortion,
    mirrorwheel_facetsurfacedistortion,
    mirrorwheel_facetsurfacedistortion_d,
    mirrorwheel_fanbeam, ///< four beams at once, in packets of its own
};

/// Faults of the receiver that the recording has, together with what corrects them.
enum class correction : std::uint8_t {
    near_range,             ///< near targets seem farther away; table over range
    amplitude_range,        ///< strong echoes seem nearer; table over amplitude
    range_grid,             ///< both at once; table over range and amplitude
    notch,                  ///< echoes of an exit pane; a window of ranges
    angular_notch,          ///< the same of a curved pane; windows by the line angle
    dynamic_trigger,        ///< ringing around strong echoes; thresholds by amplitude
    dynamic_trigger_tables, ///< the same; thresholds by amplitude and distance
    waveform,               ///< none, but the tables that come with waveforms
};

/// How the sampled waveforms of a shot stand in the stream.
enum class waveform_form : std::uint8_t {
    none,
    parameters,            ///< fixed channels, 32-bit time, 16 bits a sample
    parameters_compressed, ///< the same, differences of samples
    hr,                    ///< fixed channels, high-resolution time, as many bits as a sample has
    hr_compressed,
    channel,            ///< channels told one by one, high-resolution time
    channel_1,          ///< the same with the second kind of head
    channel_compressed, ///< the same, differences of samples
    subpackages,        ///< the same within the stream of shots and echoes
};

/// Whether a form tells the high-resolution time. Blocks and shots are paired by equal times.
bool is_high_resolution(waveform_form form) noexcept;

/// A choice and the word for it.
template<class Choice>
struct named {
    std::string_view name;
    Choice value;
};

inline constexpr std::array<named<packet_form>, 7> packet_forms{{
    {"plain", packet_form::plain},
    {"hr", packet_form::hr},
    {"packed", packet_form::packed},
    {"packed-rad", packet_form::packed_rad},
    {"packed-hr", packet_form::packed_hr},
    {"shot-echo", packet_form::shot_echo},
    {"shot-echo-blocks", packet_form::shot_echo_blocks},
}};

inline constexpr std::array<named<mechanics>, 14> mechanics_models{{
    {"mirrorwheel", mechanics::mirrorwheel},
    {"mirrorwheel-exitpane", mechanics::mirrorwheel_exitpane},
    {"mirrorwheel-deflection", mechanics::mirrorwheel_deflection},
    {"mirrorwheel-biaxial", mechanics::mirrorwheel_biaxial},
    {"mirrorwheel-nodding", mechanics::mirrorwheel_nodding},
    {"gimbalmountmirror", mechanics::gimbalmountmirror},
    {"wedge", mechanics::wedge},
    {"mirrorwheel-windowdistortion", mechanics::mirrorwheel_windowdistortion},
    {"mirrorwheel-deflection-windowdistortion", mechanics::mirrorwheel_deflection_windowdistortion},
    {"wedge-scanconedistortion", mechanics::wedge_scanconedistortion},
    {"mirrorwheel-scanconedistortion", mechanics::mirrorwheel_scanconedistortion},
    {"mirrorwheel-facetsurfacedistortion", mechanics::mirrorwheel_facetsurfacedistortion},
    {"mirrorwheel-facetsurfacedistortion-d", mechanics::mirrorwheel_facetsurfacedistortion_d},
    {"mirrorwheel-fanbeam", mechanics::mirrorwheel_fanbeam},
}};

inline constexpr std::array<named<correction>, 8> corrections{{
    {"near-range", correction::near_range},
    {"amplitude-range", correction::amplitude_range},
    {"range-grid", correction::range_grid},
    {"notch", correction::notch},
    {"angular-notch", correction::angular_notch},
    {"dynamic-trigger", correction::dynamic_trigger},
    {"dynamic-trigger-tables", correction::dynamic_trigger_tables},
    {"waveform", correction::waveform},
}};

inline constexpr std::array<named<waveform_form>, 8> waveform_forms{{
    {"channel", waveform_form::channel},
    {"channel-1", waveform_form::channel_1},
    {"channel-compressed", waveform_form::channel_compressed},
    {"subpackages", waveform_form::subpackages},
    {"hr", waveform_form::hr},
    {"hr-compressed", waveform_form::hr_compressed},
    {"parameters", waveform_form::parameters},
    {"parameters-compressed", waveform_form::parameters_compressed},
}};

/// The choice that a word of such a list stands for. The word must be one of them.
template<class Choice, std::size_t N>
Choice choice_of(const std::array<named<Choice>, N>& list, std::string_view name) noexcept {
    for (const auto& entry : list) {
        if (entry.name == name) {
            return entry.value;
        }
    }
    return list.front().value;
}

/// How the stream tells a reader in which zone targets are.
enum class zone_telling : std::uint8_t { gates, number };

/// What a user may choose about the instrument and its scan.
struct scan_settings {
    std::uint64_t shots = 1'000'000;
    double pulse_rate = 300'000;   ///< laser pulses a second
    double lines_per_second = 100; ///< scan lines a second
    double turn_time = 0; ///< s for a full turn of the head; 0 for one turn in the recording
    std::uint32_t start_time =
        43200; ///< PPS time at which the recording starts, whole s of the day
    std::uint64_t seed = 1;
    packet_form form = packet_form::plain;
    mechanics optics = mechanics::mirrorwheel;
    std::set<correction> calibration;
    waveform_form waveforms = waveform_form::none;
    /// Zones of range, each as long as light goes forth and back between two pulses, that are
    /// measured line by line in turn. 0 for a scanner whose range ends before the next pulse.
    std::uint32_t zones = 0;
    zone_telling zones_by = zone_telling::gates;
};

/// Length of a zone in metres.
double zone_length(double pulse_rate) noexcept;

/// Pulse rate at which the scene reaches into the last of so many zones.
double pulse_rate_for(std::uint32_t zones) noexcept;

/// The simplest form of packets that goes with the other settings.
packet_form plainest_form(const scan_settings& settings) noexcept;

/// Throws std::invalid_argument, with a text for the user, for settings that contradict each other.
void check(const scan_settings& settings);

} // namespace simulator
