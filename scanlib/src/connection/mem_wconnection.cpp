#include "scanlib/mem_wconnection.hpp"

namespace scanlib {

mem_wconnection::mem_wconnection(std::vector<char>& bytes) : bytes_(&bytes) {}
mem_wconnection::~mem_wconnection() = default;

std::int64_t mem_wconnection::write(const char* data, std::int64_t n) {
    if (n > 0) {
        bytes_->insert(bytes_->end(), data, data + n);
    }
    return n;
}

} // namespace scanlib
