#pragma once

#include <cstdint>
#include <vector>

#include "scanlib/connection.hpp"

namespace scanlib {

/// Writes into memory. The factories do not know it.
class mem_wconnection : public basic_wconnection {
  public:
    /// Appends to `bytes`, which must outlive this connection.
    explicit mem_wconnection(std::vector<char>& bytes);
    mem_wconnection(std::vector<char>&&) = delete;
    ~mem_wconnection() override;

    /// Takes all of it and returns `n`; nothing where `n` is below 1. Throws std::length_error for
    /// more than a vector can hold.
    std::int64_t write(const char* data, std::int64_t n) override;

  private:
    std::vector<char>* bytes_;
};

} // namespace scanlib
