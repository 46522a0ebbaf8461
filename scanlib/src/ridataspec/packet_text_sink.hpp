#pragma once

#include <algorithm>
#include <array>
#include <charconv>
#include <concepts>
#include <cstdint>
#include <ios>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

namespace scanlib::detail {

/// Digits behind the point: 17 significant ones give every f64 back.
inline constexpr int text_precision = 16;

/// Where appended text goes.
inline bool write_text(std::string& target, const char* text, std::size_t n) {
    target.append(text, n);
    return true;
}
inline bool write_text(std::streambuf& target, const char* text, std::size_t n) {
    const auto wanted = static_cast<std::streamsize>(n);
    return target.sputn(text, wanted) == wanted;
}

/// Collects text in pieces for a std::string or std::streambuf, in the form that a stream in its
/// first state gives it.
template<class Target>
class piece_sink {
  public:
    explicit piece_sink(Target& target) : target_(target) {}
    piece_sink(const piece_sink&) = delete;
    piece_sink& operator=(const piece_sink&) = delete;

    void put(char c) {
        make_room(1);
        *at_++ = c;
    }
    void put(std::string_view text) {
        if (text.size() > piece_.size()) {
            spill();
            good_ = good_ && write_text(target_, text.data(), text.size());
            return;
        }
        make_room(text.size());
        at_ = std::copy(text.begin(), text.end(), at_); // an empty one may have no address
    }
    void number(std::integral auto value) {
        make_room(longest_number);
        at_ = std::to_chars(at_, end(), value).ptr;
    }
    void number(double value) {
        make_room(longest_number);
        at_ = std::to_chars(at_, end(), value, std::chars_format::scientific, text_precision).ptr;
    }
    void word(std::uint32_t value) {
        if (value != 0) {
            put("0x");
        }
        make_room(longest_number);
        at_ = std::to_chars(at_, end(), value, 16).ptr;
    }

    /// Hands everything on. Returns whether the target took all of it.
    bool finish() {
        spill();
        return good_;
    }

  private:
    static constexpr std::size_t longest_number = 32;

    char* end() noexcept { return piece_.data() + piece_.size(); }
    void make_room(std::size_t n) {
        if (static_cast<std::size_t>(end() - at_) < n) {
            spill();
        }
    }
    void spill() {
        const auto n = static_cast<std::size_t>(at_ - piece_.data());
        good_ = good_ && write_text(target_, piece_.data(), n);
        at_ = piece_.data();
    }

    Target& target_;
    std::array<char, 2048> piece_;
    char* at_ = piece_.data();
    bool good_ = true;
};

/// Text through the stream's own insertion, for streams with a locale or flags of their own.
class stream_sink {
  public:
    explicit stream_sink(std::ostream& out) : out_(out) {}
    void put(char c) { out_ << c; }
    void put(std::string_view text) { out_ << text; }
    void number(std::integral auto value) { out_ << value; }
    void number(double value) { out_ << value; }
    void word(std::uint32_t value) {
        out_ << std::hex << std::showbase << value << std::dec << std::noshowbase;
    }

  private:
    std::ostream& out_;
};

} // namespace scanlib::detail
