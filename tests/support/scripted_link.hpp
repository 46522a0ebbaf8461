#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <boost/system/system_error.hpp>

#include "rdtp_link.hpp"
#include "scanlib/scanlib_exception.hpp"

namespace test_support {

/// One connection to a scripted peer.
struct scripted_connection {
    std::string bytes;    ///< what the peer sends
    int error = 0;        ///< of the system, behind the bytes; 0 for an orderly end
    bool refused = false; ///< the error comes when connecting
};

/// What a transfer did with its link.
struct link_record {
    std::vector<std::string> addresses;
    std::vector<std::string> sent;
    std::vector<std::chrono::seconds> waits;
    std::uint64_t reads = 0;
    std::uint64_t largest_read = 0;
};

/// A link without a network: connections in the order of the script, the last one again and again.
/// Reads deliver at most `largest_read` bytes. Waits take no time.
class scripted_link : public scanlib::rdtp_link {
  public:
    scripted_link(std::vector<scripted_connection> script, std::shared_ptr<link_record> record,
                  std::uint64_t largest_read = ~std::uint64_t{0})
        : script_(std::move(script)), record_(std::move(record)), largest_read_(largest_read) {}

    void connect(const std::string& host, const std::string& port) override {
        record_->addresses.push_back(host + ' ' + port);
        at_ = 0;
        if (next_ + 1 < script_.size() || !connected_) {
            next_ = connected_ ? next_ + 1 : 0;
        }
        connected_ = true;
        if (script_[next_].refused) {
            fail(script_[next_].error, "handle_connect");
        }
    }
    void send(const std::string& text) override { record_->sent.push_back(text); }
    std::uint64_t read_some(char* dst, std::uint64_t n) override {
        const scripted_connection& c = script_[next_];
        const std::uint64_t k = std::min({n, largest_read_, c.bytes.size() - at_});
        if (k == 0 && n != 0 && c.error != 0) {
            fail(c.error, "handle_async_read_some");
        }
        std::memcpy(dst, c.bytes.data() + at_, k);
        at_ += k;
        ++record_->reads;
        record_->largest_read = std::max(record_->largest_read, n);
        if (stop_at_read_ == record_->reads) {
            stop_requested_ = true;
        }
        return k;
    }
    std::uint64_t read_line_part(char* dst, std::uint64_t n) override {
        const scripted_connection& c = script_[next_];
        const std::size_t feed = c.bytes.find('\n', at_);
        const std::uint64_t wanted = feed == std::string::npos ? n : feed + 1 - at_;
        return read_some(dst, std::min(n, wanted));
    }
    void wait(std::chrono::seconds time) override { record_->waits.push_back(time); }
    void close() noexcept override {}
    bool stop_requested() const noexcept override { return stop_requested_; }
    void stop() override { stop_requested_ = true; }
    void cancel() override {}

    /// A stop that takes effect with the read of this number, counted from 1.
    void stop_at_read(std::uint64_t number) { stop_at_read_ = number; }

    /// In place of a system's error number: the name service has failed.
    static constexpr int no_such_host = -1;

  private:
    [[noreturn]] static void fail(int error, const char* step) {
        if (error == no_such_host) {
            throw boost::system::system_error(
                boost::system::error_code(1, boost::system::generic_category()), step);
        }
        throw std::system_error(error, std::system_category(), step);
    }

    std::vector<scripted_connection> script_;
    std::shared_ptr<link_record> record_;
    std::uint64_t largest_read_;
    std::size_t next_ = 0;
    bool connected_ = false;
    std::size_t at_ = 0;
    bool stop_requested_ = false;
    std::uint64_t stop_at_read_ = 0;
};

} // namespace test_support
