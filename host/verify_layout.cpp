#include "verify_layout.hpp"

#include <array>

namespace host {

namespace {

using enum Skein::K7Type;

constexpr k7_column time{"GPSTime", f64, 1, "double", 1, "s"};
constexpr k7_column positions{"Positions", f64, 3, "Tern::PhysicalSpace::point", 3, "m"};
constexpr k7_column channel{"Channel", u8, 1, "unsigned char", 1, "1"};

constexpr std::array shots{
    time,
    k7_column{"Waveforms.DirectionDelta", f64, 3, "Tern::PhysicalSpace::vector", 3, "1"},
    positions,
};
constexpr std::array echoes{
    time,
    k7_column{"Range", f64, 1, "double", 1, "m"},
    k7_column{"Amplitude", f32, 1, "float", 1, "dB"},
    channel,
    positions,
    k7_column{"Reflectance", f32, 1, "float", 1, "dB", true},
};
constexpr std::array waveforms{
    time,
    k7_column{"FWFLength", u16, 1, "unsigned short", 1, "1"},
    k7_column{"Waveforms", u16, any_width, "unsigned short", 1, "1"},
    channel,
    k7_column{"SBL_Time", f64, 1, "double", 1, "s"},
    positions,
};
constexpr std::array grids{
    k7_grid{"Shots", true, true, shots},
    k7_grid{"OPP", false, false, echoes},
    k7_grid{"Waveforms", false, true, waveforms},
};

constexpr std::array scan_attributes{
    k7_scan_attribute{"group_velocity", f64, true, true, false},
    k7_scan_attribute{"sampling_time", f64, true, true, true},
    k7_scan_attribute{"wavelength", f64, true, true, false},
    k7_scan_attribute{"t_ref", f64, true, true, false},
    k7_scan_attribute{"unambiguous_range", f64, true, true, false},
    k7_scan_attribute{"refltab_delta", f64, true, true, false},
    k7_scan_attribute{"refltab", f32, false, true, false},
    k7_scan_attribute{"ampl_unit", f64, true, true, false},
    k7_scan_attribute{"serial", text, true, true, false},
    k7_scan_attribute{"type_id", text, true, true, false},
    k7_scan_attribute{"build", text, true, true, false},
    k7_scan_attribute{"pulse_A_real", f64, false, false, false},
    k7_scan_attribute{"pulse_A_imag", f64, false, false, false},
    k7_scan_attribute{"pulse_B_real", f64, false, false, false},
    k7_scan_attribute{"pulse_B_imag", f64, false, false, false},
};

} // namespace

std::span<const k7_grid> k7_grids() {
    return grids;
}

std::span<const k7_scan_attribute> k7_scan_attributes() {
    return scan_attributes;
}

} // namespace host
