#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "scanlib/connection.hpp"

namespace test_support {

/// Read connection over bytes in memory, which can seek. Delivers at most `largest_read` bytes a
/// read.
class memory_rconnection : public scanlib::basic_rconnection {
  public:
    explicit memory_rconnection(std::vector<unsigned char> bytes,
                                std::uint64_t largest_read = ~std::uint64_t{0})
        : basic_rconnection(""), bytes_(std::move(bytes)), largest_read_(largest_read) {
        size_ = bytes_.size();
    }
    void seek(std::uint64_t position) override {
        if (position > bytes_.size()) {
            throw std::runtime_error("memory_rconnection: seek beyond the end");
        }
        next_ = position;
        position_ = position;
        end_of_input_ = false;
    }
    std::uint64_t reads() const { return reads_; }

  protected:
    std::uint64_t more_input(char* dst, std::uint64_t n) override {
        ++reads_;
        const std::uint64_t k = std::min({n, largest_read_, bytes_.size() - next_});
        if (k == 0) {
            end_of_input_ = true;
            return 0;
        }
        std::memcpy(dst, bytes_.data() + next_, k);
        next_ += k;
        return k;
    }

  private:
    std::vector<unsigned char> bytes_;
    std::uint64_t largest_read_;
    std::uint64_t next_ = 0;
    std::uint64_t reads_ = 0;
};

/// Write connection into memory. Takes at most `largest_write` bytes a write.
class memory_wconnection : public scanlib::basic_wconnection {
  public:
    explicit memory_wconnection(std::int64_t largest_write = INT64_MAX)
        : largest_write_(largest_write) {}
    std::int64_t write(const char* data, std::int64_t n) override {
        const std::int64_t k = std::min(n, largest_write_);
        bytes_.insert(bytes_.end(), data, data + k);
        return k;
    }
    void close() override { ++closes_; }
    const std::vector<unsigned char>& bytes() const { return bytes_; }
    int closes() const { return closes_; }

  private:
    std::vector<unsigned char> bytes_;
    std::int64_t largest_write_;
    int closes_ = 0;
};

} // namespace test_support
