#pragma once

#include "exit_code.hpp"
#include "override_findings.hpp"

#include <string>

namespace host {

/// An override text and what it does to a recording.
struct override_check {
    std::string input;
    std::string override_name;
    const scanlib::override_text* entries = nullptr; ///< null where there is none
    const override_findings* findings = nullptr;
    std::string failure; ///< what kept the recording from being read or corrected to its end
    exit_code code = exit_code::good;
};

/// Prints what becomes of each entry to standard output.
void print_check(const override_check& check);

/// The same as one JSON object and a newline.
std::string json_of(const override_check& check);

/// Tells on standard error what a user should know who expects a corrected recording.
void warn_of_findings(const override_check& check);

} // namespace host
