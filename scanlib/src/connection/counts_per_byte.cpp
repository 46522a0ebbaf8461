#include "scanlib/counts_per_byte.hpp"

#include "scanlib/rddp_connection.hpp"
#include "scanlib/rdtp_connection.hpp"

namespace scanlib {

bool is_live(const basic_rconnection& connection) noexcept {
    return dynamic_cast<const rdtp_rconnection*>(&connection) != nullptr ||
           dynamic_cast<const rddp_rconnection*>(&connection) != nullptr;
}

std::uint64_t counts_per_byte(const basic_rconnection& connection) noexcept {
    return is_live(connection) ? 2 : 1;
}

} // namespace scanlib
