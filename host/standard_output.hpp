#pragma once

#include "scanlib/connection.hpp"

#include <cstdint>

namespace host {

/// Write connection to standard output. Throws simulator::output_error.
class standard_output : public scanlib::basic_wconnection {
  public:
    std::int64_t write(const char* data, std::int64_t n) override;
    /// Brings everything out.
    void close() override;
};

} // namespace host
