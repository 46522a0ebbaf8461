#include "packed_forms.hpp"
#include "scanlib/packet_catalogue.hpp"
#include "scanlib/packets.hpp"
#include "subpackage.hpp"

#include <algorithm>
#include <array>
#include <vector>

namespace scanlib {

namespace sub = detail::subpackage;

namespace {

/// True where a field of this width keeps the value.
template<class Field>
bool holds(std::int64_t value) noexcept {
    using type = typename Field::value_type;
    return static_cast<std::int64_t>(packets::detail::from_bits<type, Field::width>(
               packets::detail::to_bits<type, Field::width>(static_cast<type>(value)))) == value;
}

/// The difference of two counters modulo their width.
template<class Signed, class T>
std::int64_t difference(T a, T b) noexcept {
    return static_cast<Signed>(a - b);
}

/// Every packet stands for itself: it begins with keys. Behind them a shot is told by corrections
/// to the last deltas where these fit, else by deltas, else by a key.
class subpackage_form : public packed_writer::form_writer {
  public:
    subpackage_form(packet_emitter& out, bool with_blocks) : out_(out), with_blocks_(with_blocks) {
        words_.reserve(word_limit());
    }

    void shot(const packed_shot& s) override {
        check(s);
        make_room(sub::key_shot::words);
        const shot_deltas d = deltas_to(s);
        if (!put_second_order(d) && !put_delta(d)) {
            put_key(s);
        }
        shot_ = s;
        shot_known_ = true;
    }

    void echo(const packed_echo& e) override {
        check(e);
        make_room(sub::key_echo::words);
        if (!put_delta(e)) {
            put_key(e);
        }
        echo_ = e;
        echo_known_ = true;
    }

    void block_head(const packed_block_head& head) override {
        using layout = sub::block_head;
        using entry = sub::block_entry;
        need_blocks();
        const std::size_t n = head.entries.size();
        detail::require(n < 1u << layout::channel_count::width, "a head with so many channels", n);
        for (const packed_block_entry& e : head.entries) {
            detail::require(holds<entry::channel>(e.channel), "block channel", e.channel);
            detail::require(holds<entry::value>(e.value), "block head value", e.value);
            detail::require(holds<entry::second_value>(e.second_value), "block head value",
                            e.second_value);
        }
        std::uint32_t* w = begin(sub::v3_block_head, layout::words + n);
        layout::value::write(w, head.value);
        layout::channel_count::write(w, static_cast<std::uint32_t>(n));
        w += layout::words;
        for (const packed_block_entry& e : head.entries) {
            entry::channel::write(w, e.channel);
            entry::value::write(w, e.value);
            entry::second_value::write(w, e.second_value);
            ++w;
        }
    }

    void block(const packed_block& b) override {
        using layout = sub::block;
        need_blocks();
        const std::size_t n = b.samples.size();
        detail::require(n < 1u << layout::sample_words::width, "a block with so many words", n);
        std::array<std::uint32_t, 1> head{};
        packets::sbl_dg_channel_data_compressed_writer writer(head.data());
        writer.block_field(b.time);
        writer.channel(b.channel);
        writer.last_word_bits(b.last_word_bits);
        writer.bit_width(b.bit_width);
        const packets::sbl_dg_channel_data_compressed view(head.data(), head.data() + head.size());
        detail::require(view.channel() == b.channel, "block channel", b.channel);
        detail::require(view.last_word_bits() == b.last_word_bits, "block field", b.last_word_bits);
        detail::require(view.bit_width() == b.bit_width, "block field", b.bit_width);
        std::uint32_t* w = begin(sub::v3_block, layout::words + n);
        layout::sample_words::write(w, static_cast<std::uint32_t>(n));
        w[layout::payload] = head.front();
        std::copy(b.samples.begin(), b.samples.end(), w + layout::words);
    }

    void flush() override {
        if (words_.empty()) {
            return;
        }
        out_.put(with_blocks_ ? packet_id{packets::packed_shot_echos_sbl_hr::id,
                                          packets::packed_shot_echos_sbl_hr::version}
                              : packet_id{packets::packed_shot_echos_hr::id,
                                          packets::packed_shot_echos_hr::version},
                 words_);
        words_.clear();
        shot_known_ = false;
        slope_known_ = false;
        echo_known_ = false;
    }

  private:
    struct shot_deltas {
        std::int64_t time;
        std::int64_t line;
        std::int64_t frame;
    };

    std::size_t word_limit() const {
        return layout_of(with_blocks_ ? packet_index::packed_shot_echos_sbl_hr
                                      : packet_index::packed_shot_echos_hr)
            .limit;
    }

    void need_blocks() const {
        if (!with_blocks_) {
            detail::refuse("sample blocks");
        }
    }

    static void check(const packed_shot& s) {
        using layout = sub::key_shot;
        detail::require(s.time >> layout::time::width == 0, "time", s.time);
        detail::require(holds<layout::line>(s.line), "line", s.line);
        detail::require(holds<layout::frame>(s.frame), "frame", s.frame);
        detail::require(s.radiation == 0, "radiation", s.radiation);
    }

    static void check(const packed_echo& e) {
        detail::require(holds<sub::key_echo::range>(static_cast<std::int32_t>(e.range)), "range",
                        e.range);
        detail::require(e.flags == 0, "echo flags", e.flags);
    }

    void make_room(std::size_t words) {
        if (words_.size() + words > word_limit()) {
            flush();
        }
    }

    /// Cleared words behind the present ones, under a tag of the version in use.
    std::uint32_t* begin(std::uint32_t tag, std::size_t words) {
        make_room(words);
        const std::size_t at = words_.size();
        words_.resize(at + words);
        sub::tag::write(words_.data() + at, tag);
        return words_.data() + at;
    }
    std::uint32_t* begin_shared(sub::tag_v2 tag, std::size_t words) {
        return begin(with_blocks_ ? tag - sub::v2_key_shot + sub::v3_key_shot : tag, words);
    }

    shot_deltas deltas_to(const packed_shot& s) const noexcept {
        return {static_cast<std::int64_t>(s.time - shot_.time),
                difference<std::int32_t>(s.line, shot_.line),
                difference<std::int32_t>(s.frame, shot_.frame)};
    }

    bool put_second_order(const shot_deltas& d) {
        using layout = sub::second_order_shot;
        const shot_deltas c{d.time - slope_.time, d.line - slope_.line, d.frame - slope_.frame};
        if (!slope_known_ || d.time < 0 || !holds<layout::time>(c.time) ||
            !holds<layout::line>(c.line) || !holds<layout::frame>(c.frame)) {
            return false;
        }
        std::uint32_t* const w = begin_shared(sub::v2_second_order_shot, layout::words);
        layout::time::write(w, detail::narrowed{c.time});
        layout::line::write(w, detail::narrowed{c.line});
        layout::frame::write(w, detail::narrowed{c.frame});
        return true;
    }

    bool put_delta(const shot_deltas& d) {
        using layout = sub::delta_shot;
        if (!shot_known_ || !holds<layout::time>(d.time) || !holds<layout::line>(d.line) ||
            !holds<layout::frame>(d.frame)) {
            return false;
        }
        std::uint32_t* const w = begin_shared(sub::v2_delta_shot, layout::words);
        layout::time::write(w, detail::narrowed{d.time});
        layout::line::write(w, detail::narrowed{d.line});
        layout::frame::write(w, detail::narrowed{d.frame});
        slope_ = d;
        slope_known_ = true;
        return true;
    }

    void put_key(const packed_shot& s) {
        using layout = sub::key_shot;
        std::uint32_t* const w = begin_shared(sub::v2_key_shot, layout::words);
        layout::time::write(w, s.time);
        layout::line::write(w, s.line);
        layout::frame::write(w, s.frame);
    }

    bool put_delta(const packed_echo& e) {
        using layout = sub::delta_echo;
        const std::int64_t range = difference<std::int32_t>(e.range, echo_.range);
        const std::int64_t amplitude = difference<std::int16_t>(e.amplitude, echo_.amplitude);
        const std::int64_t offset = difference<std::int16_t>(e.reflectance - e.amplitude,
                                                             echo_.reflectance - echo_.amplitude);
        const std::int64_t deviation = difference<std::int16_t>(e.deviation, echo_.deviation);
        if (!echo_known_ || !holds<layout::range>(range) || !holds<layout::amplitude>(amplitude) ||
            !holds<layout::offset>(offset) || !holds<layout::deviation>(deviation)) {
            return false;
        }
        std::uint32_t* const w = begin_shared(sub::v2_delta_echo, layout::words);
        layout::range::write(w, detail::narrowed{range});
        layout::amplitude::write(w, detail::narrowed{amplitude});
        layout::offset::write(w, detail::narrowed{offset});
        layout::deviation::write(w, detail::narrowed{deviation});
        return true;
    }

    void put_key(const packed_echo& e) {
        using layout = sub::key_echo;
        std::uint32_t* const w = begin_shared(sub::v2_key_echo, layout::words);
        layout::range::write(w, static_cast<std::int32_t>(e.range));
        layout::amplitude::write(w, e.amplitude);
        layout::offset::write(w, static_cast<std::uint16_t>(e.reflectance - e.amplitude));
        layout::deviation::write(w, e.deviation);
    }

    packet_emitter& out_;
    bool with_blocks_;
    std::vector<std::uint32_t> words_; ///< of the packet in progress
    packed_shot shot_;                 ///< what a reader of this packet knows
    shot_deltas slope_{};
    packed_echo echo_;
    bool shot_known_ = false;
    bool slope_known_ = false;
    bool echo_known_ = false;
};

} // namespace

std::unique_ptr<packed_writer::form_writer> detail::make_subpackage_form(packet_emitter& out,
                                                                         bool with_blocks) {
    return std::make_unique<subpackage_form>(out, with_blocks);
}

} // namespace scanlib
