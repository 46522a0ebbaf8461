#include "commit_file.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Skein {

namespace {

constexpr std::uint64_t page_bytes = 4096;

std::string textOf(int cause) {
    return std::generic_category().message(cause);
}

/// The file's way in /proc, which can be given a name.
std::string wayTo(int descriptor) {
    return "/proc/self/fd/" + std::to_string(descriptor);
}

/// A file without a name where the file system and /proc allow for it, else one of that name.
int opened(const std::string& path, bool& named) {
    const std::string folder = std::filesystem::path(path).parent_path().string();
    int descriptor =
        ::open(folder.empty() ? "." : folder.c_str(), O_RDWR | O_TMPFILE | O_CLOEXEC, 0666);
    if (descriptor >= 0 && ::access(wayTo(descriptor).c_str(), F_OK) != 0) {
        ::close(std::exchange(descriptor, -1));
    }
    named = descriptor < 0;
    if (named) {
        descriptor = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    }
    if (descriptor < 0) {
        throw std::runtime_error("cannot create " + path + ": " + textOf(errno));
    }
    return descriptor;
}

} // namespace

CommitFile::CommitFile(const std::string& path)
    : path_(path), descriptor_(opened(path, named_)), behind_(descriptor_) {}

CommitFile::~CommitFile() = default;

bool CommitFile::Descriptor::close() noexcept {
    return value_ < 0 || ::close(std::exchange(value_, -1)) == 0;
}

bool CommitFile::fail(const char* action, int cause) {
    if (error_.empty()) {
        error_ = std::string(action) + ": " + textOf(cause);
    }
    return false;
}

std::string CommitFile::error() const {
    return error_.empty() ? behind_.error() : error_;
}

std::uint64_t CommitFile::leftInPage() const noexcept {
    return (page_bytes - allocated_ % page_bytes) % page_bytes;
}

std::uint64_t CommitFile::allocateData(std::uint64_t count) noexcept {
    return std::exchange(allocated_, allocated_ + count);
}

std::uint64_t CommitFile::allocateStructure(std::uint64_t count) noexcept {
    if (count <= page_bytes && count > leftInPage()) {
        allocated_ += leftInPage();
    }
    return allocateData(count);
}

bool CommitFile::writeData(std::uint64_t at, const void* bytes, std::size_t count) {
    if (rolled_back_) {
        return true;
    }
    if (at < committed_) {
        return writeStructure(at, bytes, count);
    }
    cutHeld(at, at + count);
    end_ = std::max(end_, at + count);
    const auto* const from = static_cast<const std::byte*>(bytes);
    if (offer_ && bytes == offered_ && count == offer_->bytes()) {
        return behind_.lend(at, from, std::move(offer_));
    }
    return behind_.write(at, from, count);
}

void CommitFile::offer(const void* bytes, std::shared_ptr<Holdfast::Loan> loan) noexcept {
    offered_ = bytes;
    offer_ = std::move(loan);
}

void CommitFile::cutHeld(std::uint64_t from, std::uint64_t to) {
    auto it = held_.upper_bound(from);
    if (it != held_.begin()) {
        --it;
    }
    while (it != held_.end() && it->first < to) {
        const std::uint64_t start = it->first;
        const std::uint64_t stop = start + it->second.size();
        if (stop <= from) {
            ++it;
            continue;
        }
        if (stop > to) {
            const auto tail = static_cast<std::ptrdiff_t>(to - start);
            held_.emplace(to, Bytes(it->second.begin() + tail, it->second.end()));
        }
        if (start < from) {
            it->second.resize(static_cast<std::size_t>(from - start));
            ++it;
        } else {
            it = held_.erase(it);
        }
    }
}

bool CommitFile::writeStructure(std::uint64_t at, const void* bytes, std::size_t count) {
    if (rolled_back_ || count == 0) {
        return true;
    }
    cutHeld(at, at + count);
    const auto* first = static_cast<const std::byte*>(bytes);
    held_.emplace(at, Bytes(first, first + count));
    end_ = std::max(end_, at + count);
    return true;
}

bool CommitFile::read(std::uint64_t at, void* bytes, std::size_t count) {
    if (!behind_.drain()) {
        return false;
    }
    auto* const to = static_cast<std::byte*>(bytes);
    std::size_t done = 0;
    while (done < count) {
        const ssize_t n =
            ::pread(descriptor_, to + done, count - done, static_cast<off_t>(at + done));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            return fail("read", errno);
        }
        if (n == 0) {
            std::memset(to + done, 0, count - done);
            break;
        }
        done += static_cast<std::size_t>(n);
    }
    auto it = held_.upper_bound(at);
    if (it != held_.begin()) {
        --it;
    }
    for (; it != held_.end() && it->first < at + count; ++it) {
        const std::uint64_t from = std::max(at, it->first);
        const std::uint64_t stop = std::min(at + count, it->first + it->second.size());
        if (from < stop) {
            std::memcpy(to + (from - at), it->second.data() + (from - it->first), stop - from);
        }
    }
    return true;
}

bool CommitFile::isInPlace(std::uint64_t at) const {
    const auto after = structure_.upper_bound(at);
    return at < committed_ && after != structure_.begin() && std::prev(after)->second > at;
}

void CommitFile::noteStructure(std::uint64_t from, std::uint64_t to) {
    auto next = structure_.upper_bound(from);
    if (next != structure_.begin() && std::prev(next)->second >= from) {
        --next;
        from = next->first;
    }
    while (next != structure_.end() && next->first <= to) {
        to = std::max(to, next->second);
        next = structure_.erase(next);
    }
    structure_.emplace_hint(next, from, to);
}

template<class Wanted>
bool CommitFile::writeHeld(std::uint64_t from, std::uint64_t to, Wanted wanted) {
    auto it = held_.upper_bound(from);
    if (it != held_.begin()) {
        --it;
    }
    for (; it != held_.end() && it->first < to; ++it) {
        const std::uint64_t first = std::max(from, it->first);
        const std::uint64_t stop = std::min(to, it->first + it->second.size());
        if (first < stop && wanted(first) &&
            !behind_.write(first, it->second.data() + (first - it->first),
                           static_cast<std::size_t>(stop - first))) {
            return false;
        }
    }
    return true;
}

bool CommitFile::commit() {
    const std::uint64_t end = allocated_;
    if (rolled_back_) {
        return true;
    }
    constexpr std::uint64_t beyond = std::numeric_limits<std::uint64_t>::max();
    const auto in_place = [this](std::uint64_t at) { return isInPlace(at); };
    const auto fresh = [this](std::uint64_t at) { return !isInPlace(at); };
    const auto any = [](std::uint64_t) { return true; };
    // The size grows before the head names it and shrinks only after.
    if ((end > committed_ && !behind_.resize(end)) || !writeHeld(head_size, beyond, fresh) ||
        !writeHeld(0, head_size, any) || !writeHeld(head_size, beyond, in_place) ||
        (end < committed_ && !behind_.resize(end)) || !behind_.mark(end)) {
        return false;
    }
    for (const auto& [at, bytes] : held_) {
        noteStructure(at, at + bytes.size());
    }
    held_.clear();
    allocated_ += end != committed_ ? 1 : 0;
    committed_ = end;
    end_ = end;
    return named_ || nameFile();
}

bool CommitFile::nameFile() {
    if (!behind_.drain()) {
        return false;
    }
    ::unlink(path_.c_str());
    if (::linkat(AT_FDCWD, wayTo(descriptor_).c_str(), AT_FDCWD, path_.c_str(),
                 AT_SYMLINK_FOLLOW) != 0) {
        return fail("name the file", errno);
    }
    named_ = true;
    return true;
}

bool CommitFile::settle() {
    return rolled_back_ || behind_.drain();
}

void CommitFile::rollBack() noexcept {
    if (rolled_back_) {
        return;
    }
    rolled_back_ = true;
    behind_.drain();
    held_.clear();
    committed_ = behind_.reached(0);
    end_ = committed_;
    // A tail that stays because the cut fails is no part of what the head describes.
    [[maybe_unused]] const int cut = ::ftruncate(descriptor_, static_cast<off_t>(committed_));
}

bool CommitFile::close() {
    const bool written = behind_.drain();
    struct stat info = {};
    const bool known = ::fstat(descriptor_, &info) == 0;
    const int cause = known ? EIO : errno;
    const bool whole = known && static_cast<std::uint64_t>(info.st_size) == committed_;
    const bool closed = descriptor_.close();
    if (!written) {
        return false;
    }
    if (!whole) {
        return fail("check the size", cause);
    }
    return closed || fail("close", errno);
}

} // namespace Skein
