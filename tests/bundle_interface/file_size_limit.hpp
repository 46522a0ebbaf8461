#pragma once

#include <csignal>

#include <sys/resource.h>

namespace bundle_test {

/// Limits the size of files that this process writes, as a full disk does.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t bytes) : old_signal_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &old_);
        rlimit limit = old_;
        limit.rlim_cur = bytes;
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &old_);
        std::signal(SIGXFSZ, old_signal_);
    }

  private:
    rlimit old_ = {};
    void (*old_signal_)(int);
};

} // namespace bundle_test
