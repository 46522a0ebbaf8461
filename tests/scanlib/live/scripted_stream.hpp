#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "scanlib/rdtp_connection.hpp"
#include "support/scripted_link.hpp"

namespace live_test {

using test_support::link_record;
using test_support::scripted_connection;
using test_support::scripted_link;

inline const std::string chunked_reply = "CURRENT encoding=chunked; id=scan\n";
inline const std::string plain_reply = "CURRENT encoding=plain; id=scan\n";
inline const std::string address = "rdtp://host:1/current";

/// A peer that closes the connection without a word.
inline const scripted_connection silent;

/// A live stream from a scripted peer.
struct scripted_stream {
    explicit scripted_stream(std::vector<scripted_connection> script,
                             const std::string& uri = address, const std::string& continuation = "",
                             std::uint64_t largest_read = 64)
        : record(std::make_shared<link_record>()) {
        auto made = std::make_unique<scripted_link>(std::move(script), record, largest_read);
        link = made.get();
        connection =
            std::make_shared<scanlib::rdtp_rconnection>(uri, continuation, "", std::move(made));
    }

    /// Everything up to the end, in reads of at most `n` bytes.
    std::string rest(std::uint64_t n = 64) const {
        std::string all;
        std::vector<char> block(n);
        while (const auto k = connection->read(block.data(), n)) {
            all.append(block.data(), k);
        }
        return all;
    }
    std::string whole() const {
        connection->open();
        return rest();
    }
    std::string read(std::uint64_t n) const {
        std::string text(n, ' ');
        text.resize(connection->read(text.data(), n));
        return text;
    }

    std::shared_ptr<link_record> record;
    scripted_link* link;
    std::shared_ptr<scanlib::rdtp_rconnection> connection;
};

/// Text of the failure of exactly this type.
template<class Exception, class Action>
std::string failure(Action action) {
    try {
        action();
    } catch (const Exception& e) {
        return e.what();
    } catch (const std::exception& e) {
        return std::string("another type: ") + e.what();
    }
    return "no failure";
}

} // namespace live_test
