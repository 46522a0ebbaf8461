#include "scanlib/rddp_connection.hpp"

#include <algorithm>
#include <cstring>
#include <vector>

#include <boost/asio/buffer.hpp>
#include <boost/asio/ip/udp.hpp>

#include "authority.hpp"
#include "network_context.hpp"
#include "scanlib/stream_words.hpp"
#include "uri.hpp"

namespace scanlib {

namespace {

using boost::asio::ip::udp;

/// Asked of the system, which may give less: what arrives while the reader is busy waits here.
constexpr int wanted_buffer_bytes = 8 << 20;

} // namespace

class rddp_rconnection::transfer {
  public:
    explicit transfer(const std::string& uri) {
        split_authority(parse_uri(uri).authority, lone_part::port, host_, port_);
    }

    void open() {
        const udp::endpoint local = resolve();
        network_context::error_code error;
        socket_.open(local.protocol(), error);
        throw_if(error, "open");
        socket_.set_option(udp::socket::receive_buffer_size(wanted_buffer_bytes), error);
        socket_.non_blocking(true, error);
        throw_if(error, "open");
        socket_.bind(local, error);
        throw_if(error, "bind");
        udp::socket::receive_buffer_size size;
        socket_.get_option(size, error);
        throw_if(error, "get_option");
        received_.resize(
            std::max(static_cast<std::size_t>(std::max(size.value(), 0)), sizeof preamble));
        std::memcpy(received_.data(), preamble.data(), sizeof preamble);
        begin_ = received_.data();
        end_ = begin_ + sizeof preamble;
    }

    std::uint64_t read(char* dst, std::uint64_t n) {
        if (begin_ == end_) {
            if (context_.stop_requested()) {
                return 0;
            }
            receive();
        }
        const std::uint64_t k = std::min(n, static_cast<std::uint64_t>(end_ - begin_));
        std::memcpy(dst, begin_, k);
        begin_ += k;
        return k;
    }

    void close() {
        network_context::error_code ignored;
        socket_.close(ignored);
    }
    void stop() { context_.post_stop(); }
    void cancel() {
        context_.post_cancel([this] { close(); });
    }

    /// Port 0 before `open`.
    udp::endpoint local() const {
        network_context::error_code closed;
        return socket_.local_endpoint(closed);
    }

  private:
    udp::endpoint resolve() {
        udp::resolver::results_type found;
        throw_if(context_.run([&](auto handler) {
            resolver_.async_resolve(
                host_, port_, udp::resolver::passive,
                [&found, handler](const network_context::error_code& error,
                                  const udp::resolver::results_type& results) mutable {
                    found = results;
                    handler(error);
                });
        }),
                 "handle_resolve");
        return found.begin()->endpoint();
    }

    void receive() {
        std::size_t bytes = 0;
        const auto buffer = boost::asio::buffer(received_);
        const auto error = context_.run_or_take(
            [&](auto& result) { return socket_.receive_from(buffer, sender_, 0, result); },
            [&](auto handler) { socket_.async_receive_from(buffer, sender_, handler); }, bytes);
        throw_if(error, "handle_receive_from");
        begin_ = received_.data();
        end_ = begin_ + bytes;
    }

    std::string host_ = "0.0.0.0";
    std::string port_ = "20001";
    network_context context_;
    udp::resolver resolver_{context_.io()};
    udp::socket socket_{context_.io()};
    udp::endpoint sender_;
    std::vector<char> received_;
    const char* begin_ = nullptr; ///< of what is not delivered yet
    const char* end_ = nullptr;
};

rddp_rconnection::rddp_rconnection(const std::string& uri, const std::string&,
                                   const std::string& pxp)
    : basic_rconnection(pxp), transfer_(std::make_unique<transfer>(uri)) {}

rddp_rconnection::~rddp_rconnection() = default;

void rddp_rconnection::open() {
    transfer_->open();
}

void rddp_rconnection::close() {
    transfer_->close();
}

void rddp_rconnection::stop() {
    transfer_->stop();
}

void rddp_rconnection::cancel() {
    transfer_->cancel();
}

std::uint16_t rddp_rconnection::local_port() const {
    return transfer_->local().port();
}

std::string rddp_rconnection::local_address() const {
    const udp::endpoint local = transfer_->local();
    return local.port() == 0 ? std::string() : local.address().to_string();
}

std::uint64_t rddp_rconnection::more_input(char* dst, std::uint64_t n) {
    if (n == 0) {
        return 0; // nothing asked for is not the end
    }
    gcount_ = transfer_->read(dst, n);
    if (gcount_ == 0) {
        end_of_input_ = true;
    }
    position_ += gcount_;
    return gcount_;
}

} // namespace scanlib
