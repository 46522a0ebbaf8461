#include "command_result.hpp"

#include "terminal.hpp"

#include <cstdio>

namespace host {

json_object json_of(const command_result& result) {
    json_object out;
    if (!result.input.empty()) {
        out.text("input", result.input);
    }
    if (!result.output.empty()) {
        out.text("output", result.output);
    }
    out.text("text", result.text).number("exit_code", static_cast<int>(result.code));
    return out.join(result.found);
}

exit_code tell(const command_result& result, bool json) {
    if (!result.text.empty()) {
        complain("%s", result.text.c_str());
    }
    if (json) {
        std::printf("%s\n", json_of(result).str().c_str());
    }
    return flushed(result.code);
}

exit_code flushed(exit_code code) {
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        complain("cannot write to standard output");
        return exit_code::output_failed;
    }
    return code;
}

} // namespace host
