#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <typeinfo>
#include <utility>

/// What the writers and the reader of K7 files share of the storage library. Its header is left to
/// their sources; storage_library.cpp asserts that the types here are the library's.
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

/// A number's type in files and in memory. Not owned.
struct TypePair {
    Identifier file;
    Identifier memory;
};

TypePair typesOf(const std::type_info& number);

/// The type of texts: UTF-8 of any length.
Handle textType();

/// Sets or replaces an attribute of an object.
void setAttribute(Identifier object, const std::string& name, TypePair types, Identifier space,
                  const void* value);
void setText(Identifier object, const std::string& name, const std::string& text);

} // namespace Skein::storage
