#pragma once

#include "bundle_interface/k7_reader.hpp"
#include "verify_findings.hpp"

#include <string>

namespace host {

/// How far the looking goes: to the rows' values, or without them, which takes milliseconds.
enum class verify_depth { structure, values };

/// Holds a K7 file against docs/k7-format.md: structure, attributes, numbers of fragments, row
/// counts, types, times, values. Memory is bounded. Throws Skein::K7ReadError only where the file
/// cannot be opened.
void verify_k7_file(const std::string& path, k7_findings& findings, k7_counts& counts,
                    verify_depth depth = verify_depth::values);

} // namespace host
