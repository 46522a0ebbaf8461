#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <system_error>

#include <boost/asio/error.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/system/system_error.hpp>

#include "scanlib/scanlib_exception.hpp"

namespace scanlib {

/// Runs one network operation at a time on the caller's thread, and takes requests of other threads
/// in between.
///
/// `post` only queues a handler. It runs on the caller's thread within the next or present `run`,
/// so that nothing of the owner needs a lock.
class network_context {
  public:
    using error_code = boost::system::error_code;

    boost::asio::io_context& io() noexcept { return io_; }
    bool stop_requested() const noexcept { return stop_requested_; }

    /// An operation that does not wait: `now(error)` returns its bytes, or sets the error to
    /// would_block. Data that are there need no run of the context, which costs three system calls;
    /// a request of another thread does. Otherwise, or with a request waiting, as `run`.
    template<class Now, class Start>
    error_code run_or_take(Now now, Start start, std::size_t& bytes) {
        if (!cancelled_ && requests_.load(std::memory_order_relaxed) == 0) {
            error_code result;
            bytes = now(result);
            if (result != boost::asio::error::would_block) {
                return result;
            }
        }
        return run(start, &bytes);
    }

    /// Starts an operation by `start(handler)` and runs until the handler was called with its
    /// result. Returns the error, and sets `bytes` to the handler's second argument where it has
    /// one. Throws `cancelled` if `cancel` has taken effect, before or meanwhile.
    template<class Start>
    error_code run(Start start, std::size_t* bytes = nullptr) {
        if (cancelled_) {
            throw cancelled();
        }
        error_code result;
        start([&]<class... Rest>(error_code error, Rest... rest) {
            result = error;
            if (bytes != nullptr) {
                take(*bytes, rest...);
            }
        });
        io_.restart();
        io_.run(); // up to the end of all work, which is the one operation
        if (cancelled_ && result) {
            throw cancelled();
        }
        return result;
    }

    /// From any thread.
    void post_stop() {
        ++requests_;
        boost::asio::post(io_, [this] {
            --requests_;
            stop_requested_ = true;
        });
    }
    /// From any thread. `interrupt` makes the operation under way end; it is called once.
    template<class Interrupt>
    void post_cancel(Interrupt interrupt) {
        ++requests_;
        boost::asio::post(io_, [this, interrupt] {
            --requests_;
            if (!cancelled_) {
                cancelled_ = true;
                interrupt();
            }
        });
    }

  private:
    static void take(std::size_t& bytes, std::size_t n) noexcept { bytes = n; }
    template<class... Other>
    static void take(std::size_t&, const Other&...) noexcept {}

    boost::asio::io_context io_{1};
    std::atomic<unsigned> requests_{0}; ///< of other threads, whose handlers have not run yet
    bool stop_requested_ = false;
    bool cancelled_ = false;
};

/// Throws `code` with the name of the step: std::system_error for the operating system's errors,
/// the library's own type for others.
[[noreturn]] inline void throw_network_error(const boost::system::error_code& code,
                                             const char* step) {
    if (code.category() == boost::system::system_category()) {
        throw std::system_error(code.value(), std::system_category(), step);
    }
    throw boost::system::system_error(code, step);
}

inline void throw_if(const boost::system::error_code& code, const char* step) {
    if (code) {
        throw_network_error(code, step);
    }
}

} // namespace scanlib
