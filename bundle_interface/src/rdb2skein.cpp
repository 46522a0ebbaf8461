#include "bundle_interface/rdb2skein.hpp"

#include <algorithm>
#include <exception>
#include <iterator>

namespace Riegl {

namespace {

constexpr std::size_t largest_table = 16384;

struct LeapSecond {
    int first_day; // days since 1970-01-01 on which the count is in force first
    int seconds;   // GPS time ahead of UTC
};

constexpr LeapSecond leap_seconds[] = {
    {4199, 1},   // 1981-07-01
    {4564, 2},   // 1982-07-01
    {4929, 3},   // 1983-07-01
    {5660, 4},   // 1985-07-01
    {6574, 5},   // 1988-01-01
    {7305, 6},   // 1990-01-01
    {7670, 7},   // 1991-01-01
    {8217, 8},   // 1992-07-01
    {8582, 9},   // 1993-07-01
    {8947, 10},  // 1994-07-01
    {9496, 11},  // 1996-01-01
    {10043, 12}, // 1997-07-01
    {10592, 13}, // 1999-01-01
    {13149, 14}, // 2006-01-01
    {14245, 15}, // 2009-01-01
    {15522, 16}, // 2012-07-01
    {16617, 17}, // 2015-07-01
    {17167, 18}, // 2017-01-01
};

/// The table as it is stored: not longer than an attribute may be.
Holdfast::StrongPtr<Holdfast::ChunkBase>
storedTable(const Holdfast::StrongPtr<Holdfast::Chunk<float>>& table) {
    if (table->size() <= largest_table) {
        return table;
    }
    Holdfast::StrongPtr<Holdfast::Chunk<float>> cut(new Holdfast::Chunk<float>(largest_table));
    std::copy_n(table->data(), largest_table, cut->data());
    return cut;
}

void storeOn(Holdfast::Attributes& to, const AttributesForFWFProcessing& from) {
    to.setAttribute("group_velocity", from.group_velocity);
    to.setAttribute("sampling_time", from.sampling_time);
    to.setAttribute("wavelength", from.wavelength);
    to.setAttribute("t_ref", from.t_ref);
    to.setAttribute("unambiguous_range", from.unambiguous_range);
    to.setAttribute("refltab_delta", from.refltab_delta);
    to.setAttribute("ampl_unit", from.ampl_unit);
    to.setAttribute("serial", from.serial);
    to.setAttribute("type_id", from.type_id);
    to.setAttribute("build", from.build);
    if (from.refltab.available()) {
        to.setAttribute("refltab", storedTable(from.refltab));
    }
    const std::pair<const char*, const AttributesForFWFProcessing::Coefficients&> pulse[] = {
        {"pulse_A_real", from.pulse_A_real},
        {"pulse_A_imag", from.pulse_A_imag},
        {"pulse_B_real", from.pulse_B_real},
        {"pulse_B_imag", from.pulse_B_imag},
    };
    for (const auto& [name, values] : pulse) {
        if (values.available()) {
            to.setAttribute(name, Holdfast::StrongPtr<Holdfast::ChunkBase>(values));
        }
    }
}

} // namespace

std::string AttributesForFWFProcessing::addAttributeToK7File(
    const Holdfast::StrongPtr<Skein::Grid>& waveforms,
    const Holdfast::StrongPtr<Skein::Grid>& shots, const Holdfast::StrongPtr<Skein::Field>&,
    const Holdfast::StrongPtr<Skein::Field>&, const int&) const {
    try {
        for (const auto* grid : {&waveforms, &shots}) {
            if (grid->available()) {
                storeOn((*grid)->attributes, *this);
            }
        }
    } catch (const std::exception& e) {
        return std::string("addAttributeToK7File: ") + e.what();
    }
    return {};
}

int leapSecondsOn(int date_code) {
    const auto* after =
        std::upper_bound(std::begin(leap_seconds), std::end(leap_seconds), date_code,
                         [](int day, const LeapSecond& entry) { return day < entry.first_day; });
    return after == std::begin(leap_seconds) ? 0 : std::prev(after)->seconds;
}

void modifyGPSTime(std::string& error, const int& date_code,
                   const Holdfast::StrongPtr<Holdfast::ChunkBase>& data,
                   const std::string& column_name, const bool& leap_flag) {
    if (leap_flag || column_name != "GPSTime") {
        return;
    }
    if (date_code == 0) {
        error = "modifyGPSTime: the date of the recording is not known, so leap seconds cannot be "
                "added.";
        return;
    }
    auto* times = dynamic_cast<Holdfast::Chunk<double>*>(data.get());
    if (times == nullptr) {
        error = "modifyGPSTime: the column GPSTime holds no 64-bit floats.";
        return;
    }
    const double added = leapSecondsOn(date_code);
    double* const values = times->data();
    std::for_each(values, values + times->size(), [added](double& t) { t += added; });
}

} // namespace Riegl
