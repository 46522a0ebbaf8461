#pragma once

#include <cstdint>
#include <string>

#include "bundle_interface/holdfast.hpp"
#include "bundle_interface/skein.hpp"

namespace Riegl {

/// What a later processing step needs in order to calibrate waveforms.
struct AttributesForFWFProcessing {
    /// Numbers of a pulse model; may be empty.
    using Coefficients = Holdfast::StrongPtr<Holdfast::Chunk<double>>;

    double group_velocity = 0;                           ///< m/s
    double sampling_time = 0;                            ///< s
    double wavelength = 0;                               ///< nm
    double t_ref = 0;                                    ///< s, time of the reference pulse
    std::string serial;                                  ///< serial number of the scanner
    std::string type_id;                                 ///< its type
    std::string unused_text;                             ///< not stored
    std::uint64_t reserved[2] = {0, 0};                  ///< not stored
    std::string build;                                   ///< build of its firmware
    double unambiguous_range = 0;                        ///< m
    Coefficients pulse_A_real;                           ///< pulse model of the first channel; 1
    Coefficients pulse_A_imag;                           ///< imaginary parts, as many
    Coefficients pulse_B_real;                           ///< pulse model of the second channel; 1
    Coefficients pulse_B_imag;                           ///< imaginary parts, as many
    double refltab_delta = 0.1373470495519926;           ///< m
    Holdfast::StrongPtr<Holdfast::Chunk<float>> refltab; ///< dB, may be empty
    double ampl_unit = static_cast<double>(0.01F);       ///< dB

    /// Stores the record as attributes of each grid that is available; at most the first 16384
    /// entries of the reflectance table. The fields and the number have no role. Returns an empty
    /// text, or the cause of a failure, after which attributes may be missing.
    std::string addAttributeToK7File(const Holdfast::StrongPtr<Skein::Grid>& waveforms,
                                     const Holdfast::StrongPtr<Skein::Grid>& shots,
                                     const Holdfast::StrongPtr<Skein::Field>& waveform_field,
                                     const Holdfast::StrongPtr<Skein::Field>& shot_field,
                                     const int& number) const;
};

/// Leap seconds by which GPS time is ahead of UTC on a day given as days since 1970-01-01; 0 before
/// 1981-07-01.
int leapSecondsOn(int date_code);

/// Changes the times of a column just before it is stored. Only the column "GPSTime" holds absolute
/// time; others stay as they are. With `leap_flag` true the values stay; with false the leap
/// seconds in force on the date are added. `error` gets a text, and nothing changes, if the date is
/// 0 and therefore unknown, or the column holds no 64-bit floats.
void modifyGPSTime(std::string& error, const int& date_code,
                   const Holdfast::StrongPtr<Holdfast::ChunkBase>& data,
                   const std::string& column_name, const bool& leap_flag);

} // namespace Riegl
