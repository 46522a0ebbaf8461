#include "standard_output.hpp"

#include "simulator/recording_file.hpp"

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace host {

namespace {

[[noreturn]] void fail() {
    throw simulator::output_error("cannot write to standard output: " +
                                  std::generic_category().message(errno));
}

} // namespace

std::int64_t standard_output::write(const char* data, std::int64_t n) {
    const auto size = static_cast<std::size_t>(n);
    if (std::fwrite(data, 1, size, stdout) != size) {
        fail();
    }
    return n;
}

void standard_output::close() {
    if (std::fflush(stdout) != 0) {
        fail();
    }
}

} // namespace host
