#include "bundle_interface/holdfast/console.hpp"

#include <cstdio>
#include <mutex>
#include <utility>

namespace Holdfast {

namespace {

struct SinkHolder {
    std::mutex mutex;
    Console::Sink sink;
};

SinkHolder& holder() {
    // Never destroyed, so that objects with static lifetime can still speak at the end of the
    // process.
    static auto* const instance = new SinkHolder;
    return *instance;
}

} // namespace

Console::Console() = default;

Console::~Console() {
    try {
        SinkHolder& to = holder();
        const std::lock_guard lock(to.mutex);
        if (to.sink) {
            to.sink(text_);
        } else {
            text_ += '\n';
            std::fwrite(text_.data(), 1, text_.size(), stderr);
        }
    } catch (...) {
        // A message that cannot be delivered must not end the work that it is about.
        return;
    }
}

Console& Console::operator<<(const char* text) {
    text_ += text;
    return *this;
}

Console& Console::operator<<(const std::string& text) {
    text_ += text;
    return *this;
}

void Console::setSink(Sink sink) {
    SinkHolder& to = holder();
    const std::lock_guard lock(to.mutex);
    to.sink = std::move(sink);
}

} // namespace Holdfast
