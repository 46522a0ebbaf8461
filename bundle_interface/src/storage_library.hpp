#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <utility>

/// What the writer and the reader of K7 files share of the storage library. Its header is left to
/// those two; k7_file.cpp, where the functions stand, asserts that the types here are the
/// library's.
namespace Skein::storage {

using Identifier = std::int64_t;
using Status = int;

/// What the storage library said; the operation adds action and path.
struct Failure {
    std::string cause;
};

/// The storage library is not safe between threads: every call of it holds this.
std::mutex& libraryMutex();

/// Keeps the library from printing its error stack while it lives.
class Quiet {
  public:
    Quiet();
    Quiet(const Quiet&) = delete;
    Quiet& operator=(const Quiet&) = delete;
    ~Quiet();

  private:
    Status (*function_)(Identifier, void*) = nullptr;
    void* data_ = nullptr;
};

/// Throws Failure with the innermost text of the library's error stack.
[[noreturn]] void failFromStack();

template<class Result>
Result check(Result result) {
    if (result < 0) {
        failFromStack();
    }
    return result;
}

/// Owns an identifier of the library.
class Handle {
  public:
    using Closer = Status (*)(Identifier);

    Handle() noexcept = default;
    Handle(Identifier id, Closer closer) : id_(check(id)), closer_(closer) {}
    Handle(Handle&& other) noexcept : id_(std::exchange(other.id_, none)), closer_(other.closer_) {}
    Handle& operator=(Handle&& other) noexcept {
        std::swap(id_, other.id_);
        std::swap(closer_, other.closer_);
        return *this;
    }
    ~Handle() {
        if (id_ >= 0) {
            closer_(id_);
        }
    }

    operator Identifier() const noexcept { return id_; }
    void close() { check(closer_(std::exchange(id_, none))); }

  private:
    static constexpr Identifier none = -1;
    Identifier id_ = none;
    Closer closer_ = nullptr;
};

} // namespace Skein::storage
