#include <algorithm>
#include <bit>
#include <istream>
#include <limits>

#include "packet_text_element.hpp"
#include "packet_text_reading.hpp"
#include "scanlib/packet_record.hpp"
#include "scanlib/packet_text.hpp"

namespace scanlib {

namespace detail {

void expect(std::istream& in, char c) {
    in >> std::ws;
    if (in.get() != std::istream::traits_type::to_int_type(c)) {
        in.setstate(std::ios_base::failbit);
    }
}

bool is_next(std::istream& in, char c) {
    // Skipping white space at the end of the text would fail.
    return in.good() && (in >> std::ws).good() &&
           in.peek() == std::istream::traits_type::to_int_type(c);
}

std::uint64_t read_integer(std::istream& in, std::size_t width, bool is_signed) {
    if (is_signed) {
        const std::int64_t limit = std::numeric_limits<std::int64_t>::max() >> (64 - width);
        std::int64_t value = 0;
        in >> std::ws >> value;
        if (value > limit || value < -limit - 1) {
            in.setstate(std::ios_base::failbit);
        }
        return static_cast<std::uint64_t>(value);
    }
    // The extraction of unsigned numbers takes a sign and wraps around.
    const bool negative = is_next(in, '-');
    std::uint64_t value = 0;
    in >> value;
    if (negative || value > std::numeric_limits<std::uint64_t>::max() >> (64 - width)) {
        in.setstate(std::ios_base::failbit);
    }
    return value;
}

} // namespace detail

namespace {

using detail::expect;
using detail::is_next;
using detail::text_element;
using detail::words_for;
using packets::detail::insert_bits;

/// Reads the fields of one packet into `body`.
class field_reader {
  public:
    field_reader(std::istream& in, const packet_layout& kind, std::vector<std::uint32_t>& body)
        : in_(in)
        , kind_(kind)
        , body_(body)
        , brackets_(!has_numeric_packets(in))
        , longest_(detail::longest_payload(kind)) {}

    void read() {
        body_.assign(words_for(kind_.fixed_bits), 0);
        for (const field_layout& f : kind_.fields) {
            if (f.listed && !in_.fail()) {
                expect(in_, ',');
                field(f);
            }
        }
        if (!kind_.has_sequence) {
            return;
        }
        if (kind_.is_text) {
            expect(in_, ',');
            text_sequence();
        } else if (brackets_) {
            expect(in_, ',');
            bracketed_sequence();
        } else {
            while (is_next(in_, ',')) {
                in_.get();
                add_element();
            }
        }
    }

  private:
    void fail() { in_.setstate(std::ios_base::failbit); }

    void field(const field_layout& f) {
        if (f.type == field_type::text) {
            text(f);
            return;
        }
        const bool bracketed = brackets_ && f.count != 0;
        if (bracketed) {
            expect(in_, '[');
        }
        values(f, f.bit);
        if (bracketed) {
            expect(in_, ']');
        }
    }

    /// The entries of a field, a comma between them.
    void values(const field_layout& f, std::size_t bit) {
        for (std::size_t i = 0; i < std::max(f.count, 1u) && !in_.fail(); ++i) {
            if (i != 0) {
                expect(in_, ',');
            }
            place(bit + i * f.width, f.width, value(f));
        }
    }

    std::uint64_t value(const field_layout& f) {
        if (f.type != field_type::floating) {
            return detail::read_integer(in_, f.width, f.type == field_type::signed_integer);
        }
        if (f.width == 32) {
            float value = 0;
            in_ >> std::ws >> value;
            return std::bit_cast<std::uint32_t>(value);
        }
        double value = 0;
        in_ >> std::ws >> value;
        return std::bit_cast<std::uint64_t>(value);
    }

    void place(std::size_t bit, std::size_t width, std::uint64_t bits) {
        if (!in_.fail()) {
            insert_bits(body_.data(), bit, width, bits);
        }
    }

    /// The closing quote must follow at once.
    void close_text() {
        if (in_.get() != '"') {
            fail();
        }
    }

    /// The next character of a text; false at its end. A zero byte would end the text before that.
    bool text_character(std::uint64_t& c) {
        const int next = in_.peek();
        if (!in_.good() || next == '"' || next == 0) {
            return false;
        }
        c = static_cast<std::uint64_t>(in_.get());
        return true;
    }

    void text(const field_layout& f) {
        expect(in_, '"');
        std::uint64_t c = 0;
        for (std::size_t i = 0; i < f.count && text_character(c); ++i) {
            insert_bits(body_.data(), f.bit + 8 * i, 8, c);
        }
        close_text();
    }

    void text_sequence() {
        expect(in_, '"');
        // The view of an empty text needs its zero byte.
        if (!grow(0)) {
            return;
        }
        std::uint64_t c = 0;
        for (std::size_t i = 0; text_character(c); ++i) {
            if (!grow(i)) {
                return;
            }
            insert_bits(body_.data(), kind_.fixed_bits + 8 * i, 8, c);
        }
        close_text();
    }

    void bracketed_sequence() {
        expect(in_, '[');
        while (!in_.fail() && !is_next(in_, ']')) {
            // Plain elements may stand in braces, too.
            const bool braces = is_next(in_, '{');
            if (braces || kind_.is_composite) {
                expect(in_, '{');
            }
            add_element();
            if (braces) {
                expect(in_, '}');
            }
            if (is_next(in_, ',')) {
                in_.get();
            }
        }
        expect(in_, ']');
    }

    /// Makes room for the element at `i`. False where the kind or the framing allows no more.
    bool grow(std::size_t i) {
        const std::size_t words =
            words_for(kind_.fixed_bits + (i + 1) * std::size_t{kind_.element_bits});
        if (words > longest_) {
            fail();
            return false;
        }
        if (words > body_.size()) {
            body_.resize(words);
        }
        return true;
    }

    void add_element() {
        if (!grow(elements_)) {
            return;
        }
        const std::size_t base = kind_.fixed_bits + elements_ * kind_.element_bits;
        bool first = true;
        const text_element element(kind_);
        for (const field_layout& f : element.fields()) {
            if (!first) {
                expect(in_, ',');
            }
            values(f, base + f.bit);
            first = false;
        }
        ++elements_;
    }

    std::istream& in_;
    const packet_layout& kind_;
    std::vector<std::uint32_t>& body_;
    bool brackets_;
    std::size_t longest_;
    std::size_t elements_ = 0;
};

} // namespace

std::istream& read_packet(std::istream& in, packet_id id, std::vector<std::uint32_t>& body) {
    body.clear();
    const packet_index n = index_of(id);
    if (n == packet_index::unknown) {
        return in;
    }
    field_reader(in, layout_of(n), body).read();
    if (in.fail()) {
        body.clear();
    }
    return in;
}

std::istream& read_packet_words(std::istream& in, std::vector<std::uint32_t>& body) {
    body.clear();
    const std::ios_base::fmtflags flags = in.flags();
    in.setf(std::ios_base::hex, std::ios_base::basefield);
    while (is_next(in, ',')) {
        in.get();
        const auto word = static_cast<std::uint32_t>(detail::read_integer(in, 32, false));
        if (in.fail() || body.size() == longest_text_body) {
            in.setstate(std::ios_base::failbit);
            body.clear();
            break;
        }
        body.push_back(word);
    }
    in.flags(flags);
    return in;
}

} // namespace scanlib
