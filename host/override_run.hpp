#pragma once

#include "override_findings.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace host {

/// An override file, read and parsed.
struct override_file {
    std::string text;
    scanlib::override_text entries;
};

/// Reads an override file; null, with the reason in `reason`, where it cannot be read or is no
/// override text.
std::unique_ptr<override_file> read_override_file(const std::string& name, std::string& reason);

/// Takes the next bytes of a corrected recording.
using bytes_taker = std::function<void(const char* data, std::uint64_t n)>;

/// Reads a recording through an override text to its end. Returns why that cannot be done, empty if
/// it can. What `take` throws passes through.
std::string read_overridden(const std::string& input, const override_file& file,
                            override_findings& findings, const bytes_taker& take);

} // namespace host
