#pragma once

#include <filesystem>
#include <string>

#include "bundle_interface/holdfast.hpp"
#include "bundle_interface/rdb2skein.hpp"
#include "frontend/conversion.hpp"

namespace Riegl {

/// Scales of amplitude and reflectance, as the scan's metadata give them.
struct ReflectanceAmplitudeAttributes {
    double ampl_unit = 0;     ///< dB
    double refltab_delta = 0; ///< metres between entries of the table
    Holdfast::StrongPtr<Holdfast::Chunk<float>>
        refltab; ///< reflectance correction, dB; may be empty
};

/// Reads the scales from the JSON metadata text. Never throws for a bad document: says on the
/// console what is wrong and returns what it has. A table of 16384 or more entries also leaves a
/// warning in `input.Errors`.
ReflectanceAmplitudeAttributes parse_reflectance_amplitude_attributes(const std::string& json,
                                                                      Input& input);

/// Replaces `t_ref` for three recordings of one instrument that carry a wrong one, known by serial
/// number and by the date in the file's name. Each replacement is told on the console and in
/// `input.Errors`.
void override_t_ref(AttributesForFWFProcessing& attributes, const std::filesystem::path& file,
                    Input& input);

} // namespace Riegl
