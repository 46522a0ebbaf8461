#pragma once

#include "exit_code.hpp"
#include "json.hpp"

#include <string>

namespace host {

/// What a command on one input or output tells in the end.
struct command_result {
    std::string input;  ///< as on the command line; empty where there is none
    std::string output; ///< likewise
    exit_code code = exit_code::good;
    std::string text;  ///< why the code is not good
    json_object found; ///< what else is told as JSON
};

/// The result as JSON: input, output, text, exit code, and what was found.
json_object json_of(const command_result& result);

/// Complains of the result's text, and prints the result where JSON is asked for. Returns the code
/// of the command.
exit_code tell(const command_result& result, bool json);

/// Brings what was printed to its place. Returns `code`, or, where that fails, the code of that.
exit_code flushed(exit_code code);

} // namespace host
