#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <ostream>
#include <stdexcept>

#include "packet_text_element.hpp"
#include "packet_text_sink.hpp"
#include "scanlib/packet_record.hpp"
#include "scanlib/packet_text.hpp"

namespace scanlib {

namespace {

using detail::piece_sink;
using detail::stream_sink;
using detail::text_element;
using packets::detail::extract_bits;

constexpr std::string_view separator = ", ";

std::size_t bits_between(const std::uint32_t* begin, const std::uint32_t* end) noexcept {
    return static_cast<std::size_t>(end - begin) * 32;
}

/// Refuses a payload that ends before the sequence begins.
void check_sequence(const packet_layout& kind, const std::uint32_t* begin,
                    const std::uint32_t* end) {
    const std::size_t needed = kind.fixed_bits + (kind.is_text ? 8u : 0u);
    if (kind.has_sequence && bits_between(begin, end) < needed) {
        throw std::range_error(kind.is_text ? "Buffer too small for utf8seq."
                                            : "Missing data for sequence.");
    }
}

/// A payload as its kind's fields need it: one that is too short goes on with zero bits.
class full_payload {
  public:
    full_payload(const packet_layout& kind, const std::uint32_t* begin, const std::uint32_t* end)
        : begin_(begin), end_(end) {
        check_sequence(kind, begin, end);
        if (!kind.has_sequence && bits_between(begin, end) < kind.fixed_bits) {
            std::fill(std::copy(begin, end, padded_.begin()), padded_.end(), 0u);
            begin_ = padded_.data();
            end_ = begin_ + kind.fixed_bits / 32;
        }
    }
    full_payload(const full_payload&) = delete;
    full_payload& operator=(const full_payload&) = delete;

    const std::uint32_t* begin() const noexcept { return begin_; }
    const std::uint32_t* end() const noexcept { return end_; }

  private:
    const std::uint32_t* begin_;
    const std::uint32_t* end_;
    std::array<std::uint32_t, longest_fixed_payload> padded_;
};

/// Prints the fields of one packet. `Sink` is one of the sinks of packet_text_sink.hpp.
template<class Sink>
class field_printer {
  public:
    field_printer(Sink& out, const packet_layout& kind, const full_payload& payload, pair_form form)
        : out_(out)
        , kind_(kind)
        , words_(payload.begin())
        , end_(payload.end())
        , brackets_(form == pair_form::named) {}

    void field(const field_layout& f) {
        if (f.type == field_type::text) {
            text(f);
        } else if (f.count == 0) {
            number(f, f.bit);
        } else {
            bracket('[');
            for (std::size_t i = 0; i < f.count; ++i) {
                separate(i);
                number(f, f.bit + i * f.width);
            }
            bracket(']');
        }
    }

    /// What stands behind the fields. Nothing at all for an empty one without brackets.
    void sequence() {
        if (kind_.is_text) {
            text_sequence();
            return;
        }
        const text_element element(kind_);
        const std::size_t n = (bits_between(words_, end_) - kind_.fixed_bits) / kind_.element_bits;
        bracket('[');
        for (std::size_t i = 0; i < n; ++i) {
            separate(i);
            this->element(element.fields(), kind_.fixed_bits + i * kind_.element_bits);
        }
        bracket(']');
    }

    bool sequence_is_silent() const noexcept {
        return !brackets_ && !kind_.is_text &&
               bits_between(words_, end_) - kind_.fixed_bits < kind_.element_bits;
    }

  private:
    void bracket(char c) {
        if (brackets_) {
            out_.put(c);
        }
    }

    void separate(std::size_t i) {
        if (i != 0) {
            out_.put(separator);
        }
    }

    void number(const field_layout& f, std::size_t bit) {
        const std::uint64_t bits = extract_bits(words_, bit, f.width);
        if (f.type == field_type::unsigned_integer) {
            out_.number(bits);
        } else if (f.type == field_type::signed_integer) {
            out_.number(static_cast<std::int64_t>(bits << (64 - f.width)) >> (64 - f.width));
        } else if (f.width == 32) {
            const auto value = std::bit_cast<float>(static_cast<std::uint32_t>(bits));
            out_.number(static_cast<double>(value));
        } else {
            out_.number(std::bit_cast<double>(bits));
        }
    }

    void text(const field_layout& f) {
        out_.put('"');
        for (std::size_t i = 0; i < f.count; ++i) {
            const auto c = static_cast<char>(extract_bits(words_, f.bit + 8 * i, 8));
            if (c == '\0') {
                break;
            }
            out_.put(c);
        }
        out_.put('"');
    }

    void text_sequence() {
        const char* const first = reinterpret_cast<const char*>(words_) + kind_.fixed_bits / 8;
        const auto capacity = (bits_between(words_, end_) - kind_.fixed_bits) / 8;
        out_.put('"');
        out_.put(std::string_view(first, strnlen(first, capacity)));
        out_.put('"');
    }

    void element(std::span<const field_layout> fields, std::size_t base) {
        const bool braces = brackets_ && kind_.is_composite;
        std::size_t values = 0;
        if (braces) {
            out_.put('{');
        }
        for (const field_layout& f : fields) {
            for (std::size_t i = 0; i < std::max(f.count, 1u); ++i) {
                separate(values++);
                number(f, base + f.bit + i * f.width);
            }
        }
        if (braces) {
            out_.put('}');
        }
    }

    Sink& out_;
    const packet_layout& kind_;
    const std::uint32_t* words_;
    const std::uint32_t* end_;
    bool brackets_;
};

template<class Sink>
void put_words(Sink& out, const std::uint32_t* begin, const std::uint32_t* end) {
    for (const std::uint32_t* p = begin; p != end; ++p) {
        out.put(separator);
        out.word(*p);
    }
    out.put('\n');
}

/// The fields behind the pair, each behind a separator, and the newline.
template<class Sink>
void put_fields(Sink& out, packet_index n, const full_payload& payload, pair_form form) {
    if (n == packet_index::unknown) {
        put_words(out, payload.begin(), payload.end());
        return;
    }
    const packet_layout& kind = layout_of(n);
    field_printer<Sink> print(out, kind, payload, form);
    for (const field_layout& f : kind.fields) {
        if (f.listed) {
            out.put(separator);
            print.field(f);
        }
    }
    if (kind.has_sequence && !print.sequence_is_silent()) {
        out.put(separator);
        print.sequence();
    }
    out.put('\n');
}

template<class Sink>
void put_pair(Sink& out, std::string_view name, packet_id id) {
    out.put(name);
    out.put(" (");
    out.number(id.id);
    out.put('.');
    out.number(id.version);
    out.put(')');
}

template<class Sink>
void put_pair(Sink& out, packet_index n, packet_id id, pair_form form) {
    if (form == pair_form::named) {
        put_pair(out, layout_of(n).name, id);
        return;
    }
    out.number(id.id);
    out.put(separator);
    out.number(id.version);
}

pair_form form_of(std::ostream& out) {
    return has_numeric_packets(out) ? pair_form::numeric : pair_form::named;
}

/// Whether the stream would insert numbers and text as one in its first state does, base and
/// notation apart, which the text form sets itself.
bool is_plain(const std::ostream& out) {
    constexpr auto shaping = std::ios_base::showpos | std::ios_base::uppercase;
    return (out.flags() & shaping) == std::ios_base::fmtflags{} && out.width() == 0 &&
           out.getloc() == std::locale::classic();
}

/// Sets the notation of the fields and gives the stream its own back.
class field_notation {
  public:
    explicit field_notation(std::ostream& out)
        : out_(out), flags_(out.flags()), precision_(out.precision(detail::text_precision)) {
        out.setf(std::ios_base::dec, std::ios_base::basefield);
        out.setf(std::ios_base::scientific, std::ios_base::floatfield);
    }
    field_notation(const field_notation&) = delete;
    field_notation& operator=(const field_notation&) = delete;
    ~field_notation() {
        out_.flags(flags_);
        out_.precision(precision_);
    }

  private:
    std::ostream& out_;
    std::ios_base::fmtflags flags_;
    std::streamsize precision_;
};

void insert_fields(std::ostream& out, packet_index n, const full_payload& payload) {
    const pair_form form = form_of(out);
    if (!is_plain(out)) {
        const field_notation notation(out);
        stream_sink sink(out);
        put_fields(sink, n, payload, form);
    } else if (const std::ostream::sentry ready(out); ready) {
        piece_sink sink(*out.rdbuf());
        put_fields(sink, n, payload, form);
        if (!sink.finish()) {
            out.setstate(std::ios_base::badbit);
        }
    }
    out.flush();
}

} // namespace

void print_packet(std::ostream& out, packet_id id, const std::uint32_t* begin,
                  const std::uint32_t* end) {
    const packet_index n = index_of(id);
    const full_payload payload(layout_of(n), begin, end);
    out << id;
    insert_fields(out, n, payload);
}

void print_packet_fields(std::ostream& out, packet_id id, const std::uint32_t* begin,
                         const std::uint32_t* end) {
    const packet_index n = index_of(id);
    insert_fields(out, n, full_payload(layout_of(n), begin, end));
}

std::vector<std::string> packet_fields(packet_id id, const std::uint32_t* begin,
                                       const std::uint32_t* end) {
    const packet_index n = index_of(id);
    const packet_layout& kind = layout_of(n);
    const full_payload payload(kind, begin, end);
    std::vector<std::string> fields;
    const auto add = [&](auto&& print) {
        piece_sink sink(fields.emplace_back());
        print(sink);
        sink.finish();
    };
    if (n == packet_index::unknown) {
        for (const std::uint32_t* p = begin; p != end; ++p) {
            add([&](auto& sink) { sink.word(*p); });
        }
        return fields;
    }
    for (const field_layout& f : kind.fields) {
        if (f.listed) {
            add([&](auto& sink) { field_printer(sink, kind, payload, pair_form::named).field(f); });
        }
    }
    if (kind.has_sequence) {
        add([&](auto& sink) { field_printer(sink, kind, payload, pair_form::named).sequence(); });
    }
    return fields;
}

void append_packet(std::string& text, packet_id id, const std::uint32_t* begin,
                   const std::uint32_t* end, pair_form form) {
    const packet_index n = index_of(id);
    const full_payload payload(layout_of(n), begin, end);
    piece_sink sink(text);
    put_pair(sink, n, id, form);
    put_fields(sink, n, payload, form);
    sink.finish();
}

void append_packet_words(std::string& text, packet_id id, const std::uint32_t* begin,
                         const std::uint32_t* end) {
    piece_sink sink(text);
    put_pair(sink, layout_of(packet_index::unknown).name, id);
    put_words(sink, begin, end);
    sink.finish();
}

} // namespace scanlib
