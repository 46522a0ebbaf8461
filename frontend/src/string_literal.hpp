#pragma once

#include <algorithm>
#include <cstddef>
#include <string>

namespace Riegl {

/// Text of N characters, terminating zero included, that can be a template argument.
template<std::size_t N>
struct StringLiteral {
    consteval StringLiteral(const char (&text)[N]) { std::copy_n(text, N, value); }

    template<std::size_t M>
    constexpr bool operator==(const StringLiteral<M>& other) const noexcept {
        return N == M && std::equal(value, value + N, other.value);
    }
    std::string text() const { return std::string(value, N - 1); }

    char value[N] = {};
};

} // namespace Riegl
