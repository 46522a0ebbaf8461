// Any bytes from a server, in connections that break anywhere: the client takes no byte that was
// not sent, sends nothing but lines, ends after bounded work, and reads of another size give the
// same stream.
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "scanlib/rdtp_connection.hpp"
#include "support/scripted_link.hpp"

namespace {

using test_support::link_record;
using test_support::scripted_connection;
using test_support::scripted_link;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

struct outcome {
    std::string data;
    std::string error;
    std::string continuation;
    bool operator==(const outcome&) const = default;
};

/// A connection for each piece of the input between bytes 0x1E and 0x1F; a piece that ends with the
/// latter is closed in order, others are reset. The last one is refused for ever.
std::vector<scripted_connection> script_of(const std::uint8_t* data, std::size_t size) {
    std::vector<scripted_connection> script(1);
    for (std::size_t i = 0; i < size; ++i) {
        if (data[i] == 0x1E || data[i] == 0x1F) {
            script.back().error = data[i] == 0x1E ? ECONNRESET : 0;
            script.emplace_back();
        } else {
            script.back().bytes += static_cast<char>(data[i]);
        }
    }
    script.push_back({"", ECONNREFUSED, true});
    return script;
}

outcome receive(const std::vector<scripted_connection>& script, std::uint64_t largest_read,
                std::uint64_t stop_at) {
    const auto record = std::make_shared<link_record>();
    auto link = std::make_unique<scripted_link>(script, record, largest_read);
    link->stop_at_read(stop_at);
    scanlib::rdtp_rconnection c("rdtp://h:1/current", "", "", std::move(link));
    outcome o;
    try {
        c.open();
        char block[97];
        while (const auto k = c.read(block, sizeof block)) {
            require(k <= sizeof block);
            o.data.append(block, k);
        }
    } catch (const std::exception& e) {
        o.error = e.what();
    }
    o.continuation = c.continuation();
    std::size_t sent = 0;
    for (const scripted_connection& connection : script) {
        sent += connection.bytes.size();
    }
    require(o.data.size() <= sent);
    require(record->addresses.size() <= 60 * script.size());
    for (const std::string& line : record->sent) {
        require(line.find('\n') == line.size() - 1);
    }
    return o;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 2 || size > 100000) {
        return 0;
    }
    const std::uint64_t largest_read = 1 + data[0];
    const std::uint64_t stop_at = data[1];
    const auto script = script_of(data + 2, size - 2);
    const outcome wide = receive(script, ~std::uint64_t{0}, 0);
    require(receive(script, largest_read, 0) == wide);
    const outcome stopped = receive(script, largest_read, stop_at);
    require(wide.data.starts_with(stopped.data));
    return 0;
}
