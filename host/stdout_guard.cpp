#include "stdout_guard.hpp"

#include <cerrno>
#include <cstdio>
#include <iostream>
#include <system_error>
#include <unistd.h>

namespace host {

namespace {

void flush_all() {
    std::cout.flush();
    std::fflush(stdout);
}

} // namespace

stdout_guard::stdout_guard() {
    flush_all();
    saved_ = dup(STDOUT_FILENO);
    if (saved_ < 0 || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        throw std::system_error(errno, std::generic_category(), "standard output");
    }
}

stdout_guard::~stdout_guard() {
    flush_all();
    dup2(saved_, STDOUT_FILENO);
    close(saved_);
}

} // namespace host
