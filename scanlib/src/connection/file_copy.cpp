#include "file_copy.hpp"

#include <algorithm>
#include <array>
#include <cerrno>

#include <sys/sendfile.h>
#include <unistd.h>

namespace scanlib {

namespace {

/// Takes the bytes through a piece of memory.
ssize_t pass_piece(int from, off_t& offset, std::uint64_t n, int to) noexcept {
    std::array<char, 0x8000> piece;
    const ssize_t k = pread(from, piece.data(), std::min<std::uint64_t>(n, piece.size()), offset);
    if (k <= 0) {
        return k;
    }
    offset += k;
    return write_all(to, piece.data(), static_cast<std::size_t>(k)) ? k : -1;
}

/// Moves `offset` on by the bytes copied, which it returns.
ssize_t copy_some(int from, off_t& offset, std::uint64_t n, int to, copy_way way) noexcept {
    switch (way) {
    case copy_way::within_file_systems:
        return copy_file_range(from, &offset, to, nullptr, n, 0);
    case copy_way::within_kernel:
        return sendfile(to, from, &offset, n);
    default:
        return pass_piece(from, offset, n, to);
    }
}

} // namespace

bool write_all(int to, const char* data, std::size_t n) noexcept {
    while (n != 0) {
        const ssize_t k = ::write(to, data, n);
        if (k > 0) {
            data += k;
            n -= static_cast<std::size_t>(k);
        } else if (k == 0) {
            errno = EIO;
            return false;
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

bool copy_range(int from, std::uint64_t offset, std::uint64_t n, int to, copy_way& way) noexcept {
    const auto begin = static_cast<off_t>(offset);
    auto at = begin;
    while (static_cast<std::uint64_t>(at - begin) < n) {
        errno = 0;
        const ssize_t k = copy_some(from, at, n - static_cast<std::uint64_t>(at - begin), to, way);
        if (k > 0 || errno == EINTR) {
            continue;
        }
        if (way == copy_way::through_memory) {
            return false;
        }
        way = static_cast<copy_way>(static_cast<int>(way) + 1);
    }
    return true;
}

} // namespace scanlib
