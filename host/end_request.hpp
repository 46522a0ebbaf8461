#pragma once

#include "frontend/conversion.hpp"

#include <memory>
#include <mutex>

namespace host {

/// The wish that conversions end, from any thread: passed on to the one that runs, and to one that
/// opens its stream only later.
class end_request {
  public:
    /// `signal` is the one that asks for it.
    void stop(int signal);
    void cancel(int signal);
    bool cancelled() const;
    /// The signal of the last call; 0 for none.
    int signal() const;

    /// The stream of the conversion that runs now.
    void pass_on_to(const std::shared_ptr<Riegl::StreamControl>& stream);

  private:
    enum class wish { none, stop, cancel };
    void make(wish wanted, int signal);

    mutable std::mutex mutex_;
    wish wish_ = wish::none;
    int signal_ = 0;
    std::shared_ptr<Riegl::StreamControl> stream_;
};

} // namespace host
