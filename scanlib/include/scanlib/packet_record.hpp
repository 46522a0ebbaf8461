#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string_view>
#include <type_traits>

/// Bit placement: how fields lie in the words of a payload.
///
/// Fields are addressed by bit position, counted from bit 0 of the first word upward: bit p lies in
/// word p / 32 at bit p % 32. A field may begin at any bit, cross words, and have 1 to 64 bits.
/// Words are little-endian in memory and on the stream, so that a field on a byte boundary of a
/// usual width is one plain load.
namespace scanlib::packets::detail {

static_assert(std::endian::native == std::endian::little, "payloads are read in place");

template<std::size_t Width>
/// A word with the low Width bits set.
inline constexpr std::uint64_t low_bits = Width == 64 ? ~std::uint64_t{0}
                                                      : (std::uint64_t{1} << Width) - 1;

/// The value of type T that `bits` (the low Width of them) stand for.
template<class T, std::size_t Width>
constexpr T from_bits(std::uint64_t bits) noexcept {
    if constexpr (std::is_same_v<T, float>) {
        return std::bit_cast<float>(static_cast<std::uint32_t>(bits));
    } else if constexpr (std::is_same_v<T, double>) {
        return std::bit_cast<double>(bits);
    } else if constexpr (std::is_signed_v<T>) {
        return static_cast<T>(static_cast<std::int64_t>(bits << (64 - Width)) >> (64 - Width));
    } else {
        return static_cast<T>(bits & low_bits<Width>);
    }
}

/// The inverse of from_bits.
template<class T, std::size_t Width>
constexpr std::uint64_t to_bits(T value) noexcept {
    if constexpr (std::is_same_v<T, float>) {
        return std::bit_cast<std::uint32_t>(value);
    } else if constexpr (std::is_same_v<T, double>) {
        return std::bit_cast<std::uint64_t>(value);
    } else {
        return static_cast<std::uint64_t>(value) & low_bits<Width>;
    }
}

/// General extraction: `width` bits from bit `bit` on. Touches only words that hold bits of the
/// field.
inline std::uint64_t extract_bits(const std::uint32_t* words, std::size_t bit,
                                  std::size_t width) noexcept {
    const std::uint32_t* w = words + bit / 32;
    const std::size_t offset = bit % 32;
    std::uint64_t value = std::uint64_t{w[0]} >> offset;
    if (offset + width > 32) {
        value |= std::uint64_t{w[1]} << (32 - offset);
    }
    if (offset + width > 64) {
        value |= std::uint64_t{w[2]} << (64 - offset);
    }
    return width == 64 ? value : value & ((std::uint64_t{1} << width) - 1);
}

/// The inverse of extract_bits; bits outside the field keep their value.
inline void insert_bits(std::uint32_t* words, std::size_t bit, std::size_t width,
                        std::uint64_t value) noexcept {
    for (std::size_t done = 0; done < width;) {
        const std::size_t offset = (bit + done) % 32;
        const std::size_t n = width - done < 32 - offset ? width - done : 32 - offset;
        const auto mask = static_cast<std::uint32_t>(((std::uint64_t{1} << n) - 1) << offset);
        std::uint32_t& w = words[(bit + done) / 32];
        w = (w & ~mask) | (static_cast<std::uint32_t>((value >> done) << offset) & mask);
        done += n;
    }
}

template<class T, std::size_t Bit, std::size_t Width>
/// True for a field that one load of a T gives.
inline constexpr bool is_plain_load = Bit % 8 == 0 && Width == 8 * sizeof(T);

/// The field of Width bits at the fixed position Bit.
template<class T, std::size_t Bit, std::size_t Width>
T extract(const std::uint32_t* words) noexcept {
    if constexpr (is_plain_load<T, Bit, Width>) {
        T value;
        std::memcpy(&value, reinterpret_cast<const unsigned char*>(words) + Bit / 8, sizeof value);
        return value;
    } else {
        return from_bits<T, Width>(extract_bits(words, Bit, Width));
    }
}

/// The field of Width bits at bit `base` + Bit.
template<class T, std::size_t Bit, std::size_t Width>
T extract(const std::uint32_t* words, std::size_t base) noexcept {
    if constexpr (is_plain_load<T, Bit, Width>) {
        if (base % 8 == 0) {
            T value;
            std::memcpy(&value, reinterpret_cast<const unsigned char*>(words) + (base + Bit) / 8,
                        sizeof value);
            return value;
        }
    }
    return from_bits<T, Width>(extract_bits(words, base + Bit, Width));
}

/// Text of a fixed array of Count bytes: up to its first zero byte or its end. Holds its own copy,
/// since the array may lie off any byte boundary.
template<std::size_t Count>
class fixed_text {
  public:
    fixed_text(const std::uint32_t* words, std::size_t bit) noexcept {
        while (size_ < Count) {
            const auto c = static_cast<char>(extract_bits(words, bit + 8 * size_, 8));
            if (c == '\0') {
                break;
            }
            text_[size_++] = c;
        }
    }
    std::string_view view() const noexcept { return {text_, size_}; }
    operator std::string_view() const noexcept { return view(); }

  private:
    char text_[Count];
    std::size_t size_ = 0;
};

/// A fixed array of Count numbers, read in place.
template<class T, std::size_t Bit, std::size_t Width, std::size_t Count>
class field_array {
  public:
    using value_type = T;
    field_array(const std::uint32_t* words, std::size_t base) noexcept
        : words_(words), base_(base) {}
    static constexpr std::size_t size() noexcept { return Count; }
    T operator[](std::size_t i) const noexcept {
        return extract<T, Bit, Width>(words_, base_ + i * Width);
    }

  private:
    const std::uint32_t* words_;
    std::size_t base_;
};

/// Base of the views: a payload and where it ends. Whoever lays a view grants that the fixed part
/// is there.
class record {
  public:
    record(const std::uint32_t* payload, const std::uint32_t* end) noexcept
        : words_(payload), end_(end) {}

    const std::uint32_t* words() const noexcept { return words_; }
    const std::uint32_t* end_of_words() const noexcept { return end_; }

  protected:
    template<class T, std::size_t Bit, std::size_t Width>
    T get() const noexcept {
        return extract<T, Bit, Width>(words_);
    }
    template<class T, std::size_t Bit, std::size_t Width>
    T at(std::size_t i) const noexcept {
        return extract<T, Bit, Width>(words_, i * Width);
    }
    template<class T, std::size_t Bit, std::size_t Width, std::size_t Count>
    field_array<T, Bit, Width, Count> array() const noexcept {
        return {words_, 0};
    }
    template<std::size_t Bit, std::size_t Count>
    fixed_text<Count> text() const noexcept {
        return {words_, Bit};
    }
    /// Value `i` of a field behind the fixed part; 0 where the payload ends before it.
    template<class T, std::size_t Bit, std::size_t Width>
    T beyond_at(std::size_t i) const noexcept {
        const auto bits = static_cast<std::size_t>(end_ - words_) * 32;
        return bits < Bit + (i + 1) * Width ? T{} : extract<T, Bit, Width>(words_, i * Width);
    }
    /// Elements of E bits that lie whole in the payload behind its first F bits.
    template<std::size_t F, std::size_t E>
    std::size_t tail_count() const noexcept {
        const auto bits = static_cast<std::size_t>(end_ - words_) * 32;
        return bits < F ? 0 : (bits - F) / E;
    }
    /// Bytes of the payload behind the first F bits.
    template<std::size_t F>
    std::size_t bytes_behind() const noexcept {
        return static_cast<std::size_t>(end_ - words_) * 4 - F / 8;
    }

    const std::uint32_t* words_;
    const std::uint32_t* end_;
};

/// What all sequences share: the count of elements, which is not stored but follows from the
/// payload's size, and which elements were asked for. There is no range test in the element access.
class sequence_state {
  public:
    explicit sequence_state(std::size_t count) noexcept
        : count_(static_cast<std::uint32_t>(count))
        , highest_(static_cast<std::uint32_t>(count) - 1) {}

    /// Number of elements.
    std::uint32_t size() const noexcept { return count_; }
    /// True once an element was asked for by its index.
    bool touched() const noexcept { return touched_; }
    /// The highest index: the last element's, or one above that was asked for. Of an empty
    /// sequence, 4294967295.
    std::uint32_t highest() const noexcept { return highest_; }

  protected:
    void touch(std::size_t i) noexcept {
        touched_ = true;
        if (i > highest_) {
            highest_ = static_cast<std::uint32_t>(i);
        }
    }

  private:
    std::uint32_t count_;
    std::uint32_t highest_;
    bool touched_ = false;
};

/// View of a kind with a sequence of single values: F fixed bits, then elements of E bits that hold
/// Width.
template<class T, std::size_t F, std::size_t E, std::size_t Width>
class plain_sequence_record : public record, public sequence_state {
  public:
    plain_sequence_record(const std::uint32_t* payload, const std::uint32_t* end) noexcept
        : record(payload, end), sequence_state(bytes_behind<F>() / (E / 8)) {}

    T operator[](std::size_t i) noexcept {
        touch(i);
        return extract<T, F, Width>(words_, i * E);
    }
};

/// View of a kind with a sequence of records.
template<class Element, std::size_t F, std::size_t E>
class composite_sequence_record : public record, public sequence_state {
  public:
    composite_sequence_record(const std::uint32_t* payload, const std::uint32_t* end) noexcept
        : record(payload, end), sequence_state(bytes_behind<F>() / (E / 8)) {}

    Element operator[](std::size_t i) noexcept {
        touch(i);
        return Element(words_, F + i * E);
    }
};

/// View of a kind whose sequence is text.
template<std::size_t F>
class text_sequence_record : public record {
  public:
    using record::record;

    /// Bytes that the text may take.
    std::size_t capacity() const noexcept { return bytes_behind<F>(); }
    /// The text up to its first zero byte, or all of it.
    std::string_view text() const noexcept {
        const char* first = reinterpret_cast<const char*>(words_) + F / 8;
        return {first, strnlen(first, capacity())};
    }
    std::size_t size() const noexcept { return text().size(); }
};

/// Base of the views of one element of a sequence.
class element_record {
  public:
    element_record(const std::uint32_t* words, std::size_t base) noexcept
        : words_(words), base_(base) {}

  protected:
    template<class T, std::size_t Bit, std::size_t Width>
    T get(std::size_t base) const noexcept {
        return extract<T, Bit, Width>(words_, base);
    }
    template<class T, std::size_t Bit, std::size_t Width>
    T at(std::size_t base, std::size_t i) const noexcept {
        return extract<T, Bit, Width>(words_, base + i * Width);
    }
    template<class T, std::size_t Bit, std::size_t Width, std::size_t Count>
    field_array<T, Bit, Width, Count> array(std::size_t base) const noexcept {
        return {words_, base};
    }

    const std::uint32_t* words_;
    std::size_t base_;
};

/// Base of the writers: places fields in words that the caller owns, has cleared, and made long
/// enough.
class record_writer {
  public:
    explicit record_writer(std::uint32_t* words) noexcept : words_(words) {}

  protected:
    template<class T, std::size_t Bit, std::size_t Width>
    void put(T value) noexcept {
        if constexpr (is_plain_load<T, Bit, Width>) {
            std::memcpy(reinterpret_cast<unsigned char*>(words_) + Bit / 8, &value, sizeof value);
        } else {
            insert_bits(words_, Bit, Width, to_bits<T, Width>(value));
        }
    }
    template<class T, std::size_t Bit, std::size_t Width>
    void put_at(std::size_t i, T value) noexcept {
        insert_bits(words_, Bit + i * Width, Width, to_bits<T, Width>(value));
    }
    /// Writes as many characters as fit; the rest of the array stays zero.
    template<std::size_t Bit, std::size_t Count>
    void put_text(std::string_view value) noexcept {
        for (std::size_t i = 0; i < Count && i < value.size(); ++i) {
            insert_bits(words_, Bit + 8 * i, 8, static_cast<unsigned char>(value[i]));
        }
    }

    std::uint32_t* words_;
};

/// Base of the writers of one element of a sequence.
class element_writer {
  public:
    element_writer(std::uint32_t* words, std::size_t base) noexcept : words_(words), base_(base) {}

  protected:
    template<class T, std::size_t Bit, std::size_t Width>
    void put(std::size_t base, T value) noexcept {
        insert_bits(words_, base + Bit, Width, to_bits<T, Width>(value));
    }
    template<class T, std::size_t Bit, std::size_t Width>
    void put_at(std::size_t base, std::size_t i, T value) noexcept {
        insert_bits(words_, base + Bit + i * Width, Width, to_bits<T, Width>(value));
    }

    std::uint32_t* words_;
    std::size_t base_;
};

} // namespace scanlib::packets::detail
