#include "end_request.hpp"

namespace host {

namespace {

void tell(Riegl::StreamControl& stream, bool cancelled) {
    if (cancelled) {
        stream.cancel();
    } else {
        stream.stop();
    }
}

} // namespace

void end_request::stop(int signal) {
    make(wish::stop, signal);
}

void end_request::cancel(int signal) {
    make(wish::cancel, signal);
}

bool end_request::cancelled() const {
    const std::lock_guard lock(mutex_);
    return wish_ == wish::cancel;
}

int end_request::signal() const {
    const std::lock_guard lock(mutex_);
    return signal_;
}

void end_request::pass_on_to(const std::shared_ptr<Riegl::StreamControl>& stream) {
    wish wanted = wish::none;
    {
        const std::lock_guard lock(mutex_);
        stream_ = stream;
        wanted = wish_;
    }
    if (wanted != wish::none) {
        tell(*stream, wanted == wish::cancel);
    }
}

void end_request::make(wish wanted, int signal) {
    std::shared_ptr<Riegl::StreamControl> stream;
    {
        const std::lock_guard lock(mutex_);
        wish_ = wanted;
        signal_ = signal;
        stream = stream_;
    }
    if (stream) {
        tell(*stream, wanted == wish::cancel);
    }
}

} // namespace host
