#include <array>
#include <cstring>

#include <boost/asio/buffer.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>

#include "network_context.hpp"
#include "rdtp_link.hpp"

namespace scanlib {

namespace {

namespace asio = boost::asio;
using asio::ip::tcp;

class tcp_link : public rdtp_link {
  public:
    explicit tcp_link(wait_length length) : length_(std::move(length)) {}

    void connect(const std::string& host, const std::string& port) override {
        tcp::resolver::results_type found;
        throw_if(context_.run([&](auto handler) {
            resolver_.async_resolve(
                host, port,
                [&found, handler](const network_context::error_code& error,
                                  const tcp::resolver::results_type& results) mutable {
                    found = results;
                    handler(error);
                });
        }),
                 "handle_resolve");
        throw_if(connect_to_first(found), "handle_connect");
        // An acknowledge must not wait for the one before it.
        network_context::error_code slower;
        socket_.set_option(tcp::no_delay(true), slower);
        network_context::error_code error;
        socket_.non_blocking(true, error);
        throw_if(error, "handle_connect");
    }

    void send(const std::string& text) override {
        send_buffer_ = text;
        throw_if(context_.run([this](auto handler) {
            asio::async_write(socket_, asio::buffer(send_buffer_), handler);
        }),
                 "handle_send");
    }

    std::uint64_t read_some(char* dst, std::uint64_t n) override {
        return received(asio::buffer(dst, n), 0);
    }

    // Looks first and takes then, so that the data behind the line stay for the caller's own
    // buffer; a read for each byte of the line would take as long as its chunk.
    std::uint64_t read_line_part(char* dst, std::uint64_t n) override {
        const std::uint64_t seen = received(asio::buffer(dst, n), asio::socket_base::message_peek);
        if (seen == 0) {
            return 0;
        }
        const void* const feed = std::memchr(dst, '\n', seen);
        return read_some(dst, feed == nullptr ? seen
                                              : static_cast<std::uint64_t>(
                                                    static_cast<const char*>(feed) - dst + 1));
    }

    void wait(std::chrono::seconds time) override {
        timer_.expires_after(length_ ? length_(time) : time);
        throw_if(context_.run([this](auto handler) { timer_.async_wait(handler); }), "handle_wait");
    }

    void close() noexcept override {
        network_context::error_code ignored;
        socket_.close(ignored);
    }

    bool stop_requested() const noexcept override { return context_.stop_requested(); }
    void stop() override { context_.post_stop(); }
    void cancel() override {
        context_.post_cancel([this] {
            network_context::error_code ignored;
            resolver_.cancel();
            timer_.cancel();
            socket_.cancel(ignored);
        });
    }

  private:
    /// One address after the other, so that a cancelled attempt is not followed by another.
    network_context::error_code connect_to_first(const tcp::resolver::results_type& found) {
        network_context::error_code error = asio::error::host_not_found;
        for (const auto& entry : found) {
            close();
            socket_.open(entry.endpoint().protocol(), error);
            if (!error) {
                error = context_.run([this, &entry](auto handler) {
                    socket_.async_connect(entry.endpoint(), handler);
                });
            }
            if (!error) {
                break;
            }
        }
        return error;
    }

    /// Bytes of one receive; the end of the connection is no error.
    std::uint64_t received(asio::mutable_buffer buffer, asio::socket_base::message_flags flags) {
        std::size_t bytes = 0;
        const auto error = context_.run_or_take(
            [&](auto& result) { return socket_.receive(buffer, flags, result); },
            [&](auto handler) { socket_.async_receive(buffer, flags, handler); }, bytes);
        if (error == asio::error::eof) {
            return 0;
        }
        throw_if(error, "handle_async_read_some");
        return bytes;
    }

    wait_length length_;
    network_context context_;
    tcp::resolver resolver_{context_.io()};
    tcp::socket socket_{context_.io()};
    asio::steady_timer timer_{context_.io()};
    std::string send_buffer_;
};

} // namespace

std::unique_ptr<rdtp_link> make_tcp_link(wait_length length) {
    return std::make_unique<tcp_link>(std::move(length));
}

} // namespace scanlib
