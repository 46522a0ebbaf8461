#pragma once

#include "json.hpp"

#include "frontend/recording_files.hpp"

#include <string>

namespace host {

/// Tells on standard error which files of the recording were not read, and why.
void tell_unread(const std::string& input, const Riegl::RecordingFiles& files);

/// Prints the files of a recording of several, and the override file, as lines of a summary.
void print_files(const Riegl::RecordingFiles& files);

/// Adds "files", in the order of their bytes, "override", null for none, and "unread_files".
json_object& add_files(json_object& out, const Riegl::RecordingFiles& files);

} // namespace host
