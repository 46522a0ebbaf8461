#pragma once

#include <csignal>

#include <sys/resource.h>

namespace test_support {

/// Makes files stop growing, as on a full disk, while it lives.
class file_size_limit {
  public:
    explicit file_size_limit(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    file_size_limit(const file_size_limit&) = delete;
    file_size_limit& operator=(const file_size_limit&) = delete;
    ~file_size_limit() { setrlimit(RLIMIT_FSIZE, &before_); }

  private:
    rlimit before_{};
};

} // namespace test_support
