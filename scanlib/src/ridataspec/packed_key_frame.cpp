#include "packed_forms.hpp"
#include "scanlib/packet_catalogue.hpp"
#include "scanlib/packets.hpp"

#include <algorithm>
#include <array>
#include <type_traits>
#include <vector>

namespace scanlib {

using detail::narrowed;

namespace {

/// The kinds of one form of shots, views and writers, and the width of its time.
struct plain_kinds {
    using key = packets::packed_key_laser_shot_2angles;
    using key_writer = packets::packed_key_laser_shot_2angles_writer;
    using frame = packets::packed_frame_laser_shot_2angles;
    using frame_writer = packets::packed_frame_laser_shot_2angles_writer;
    using time_type = std::uint32_t;
};
struct rad_kinds {
    using key = packets::packed_key_laser_shot_2angles_rad;
    using key_writer = packets::packed_key_laser_shot_2angles_rad_writer;
    using frame = packets::packed_frame_laser_shot_2angles_rad;
    using frame_writer = packets::packed_frame_laser_shot_2angles_rad_writer;
    using time_type = std::uint32_t;
};
struct hr_kinds {
    using key = packets::packed_key_laser_shot_2angles_hr;
    using key_writer = packets::packed_key_laser_shot_2angles_hr_writer;
    using frame = packets::packed_frame_laser_shot_2angles_hr;
    using frame_writer = packets::packed_frame_laser_shot_2angles_hr_writer;
    using time_type = std::uint64_t;
};
struct echo_kinds {
    using key_writer = packets::packed_key_echo_writer;
    using frame = packets::packed_frame_echo;
    using frame_writer = packets::packed_frame_echo_writer;
};
struct echo_hr_kinds {
    using key_writer = packets::packed_key_echo_hr_writer;
    using frame = packets::packed_frame_echo_hr;
    using frame_writer = packets::packed_frame_echo_hr_writer;
};
struct echo_hr_1_kinds {
    using key_writer = packets::packed_key_echo_hr_1_writer;
    using frame = packets::packed_frame_echo_hr_1;
    using frame_writer = packets::packed_frame_echo_hr_1_writer;
};

/// A shot that waits for its packet.
struct counted_shot : packed_shot {
    std::uint32_t echo_count = 0;
};

/// Differences from shot to shot, or of these from the first of their frame.
struct shot_deltas {
    std::int64_t time;
    std::int64_t line;
    std::int64_t frame;
    std::int64_t echo_count;

    bool operator==(const shot_deltas&) const = default;
};

struct echo_deltas {
    std::int64_t range;
    std::int64_t amplitude;
    std::int64_t third; ///< reflectance, or its offset from the amplitude
    std::int64_t flags; ///< no difference
    std::int64_t deviation;

    bool operator==(const echo_deltas&) const = default;
};

template<class Kind>
std::size_t element_limit() {
    return layout_of(Kind::index).limit;
}

template<class Writer>
void write_fixed(Writer& w, const shot_deltas& d) {
    w.time_delta(narrowed{d.time});
    w.line_delta(narrowed{d.line});
    w.frame_delta(narrowed{d.frame});
    w.echo_count(narrowed{d.echo_count});
}

template<class Writer>
void write_element(Writer w, const shot_deltas& d) {
    w.time_correction(narrowed{d.time});
    w.line_correction(narrowed{d.line});
    w.frame_correction(narrowed{d.frame});
    w.echo_count(narrowed{d.echo_count});
}

template<class Writer>
void write_element(Writer w, const echo_deltas& d) {
    w.range_delta(narrowed{d.range});
    w.amplitude_delta(narrowed{d.amplitude});
    if constexpr (requires { w.offset_delta(0); }) {
        w.offset_delta(narrowed{d.third});
    } else {
        w.reflectance_delta(narrowed{d.third});
    }
    w.flags(narrowed{d.flags});
    w.deviation_delta(narrowed{d.deviation});
}

// Whether a value fits shows when it is written and read again; so the widths stand in the table of
// kinds only.

template<class Kinds>
bool key_holds(const counted_shot& s) {
    std::array<std::uint32_t, Kinds::key_writer::words()> words{};
    typename Kinds::key_writer w(words.data());
    w.line_counter(s.line);
    w.echo_count(narrowed{s.echo_count});
    const typename Kinds::key view(words.data(), words.data() + words.size());
    return view.line_counter() == s.line && view.echo_count() == s.echo_count;
}

template<class Kinds>
bool fixed_holds(const shot_deltas& d) {
    std::array<std::uint32_t, Kinds::frame_writer::words()> words{};
    typename Kinds::frame_writer w(words.data());
    write_fixed(w, d);
    const typename Kinds::frame v(words.data(), words.data() + words.size());
    return d == shot_deltas{v.time_delta(), v.line_delta(), v.frame_delta(), v.echo_count()};
}

template<class Kinds>
bool element_holds(const shot_deltas& d) {
    std::array<std::uint32_t, Kinds::frame_writer::words(1)> words{};
    typename Kinds::frame_writer w(words.data());
    write_element(w.element(0), d);
    const auto e = typename Kinds::frame(words.data(), words.data() + words.size())[0];
    return d == shot_deltas{e.time_correction(), e.line_correction(), e.frame_correction(),
                            e.echo_count()} &&
           (std::is_same_v<Kinds, hr_kinds> || d.time != closing_time_correction);
}

template<class Kinds>
bool element_holds(const echo_deltas& d) {
    std::array<std::uint32_t, Kinds::frame_writer::words(1)> words{};
    typename Kinds::frame_writer w(words.data());
    write_element(w.element(0), d);
    const auto e = typename Kinds::frame(words.data(), words.data() + words.size())[0];
    if constexpr (requires { e.offset_delta(); }) {
        return d == echo_deltas{e.range_delta(), e.amplitude_delta(), e.offset_delta(), e.flags(),
                                e.deviation_delta()};
    } else {
        return d == echo_deltas{e.range_delta(), e.amplitude_delta(), e.reflectance_delta(),
                                e.flags(), e.deviation_delta()};
    }
}

template<class Kinds>
shot_deltas deltas(const counted_shot& from, const counted_shot& to) {
    using time = typename Kinds::time_type;
    return {static_cast<std::int64_t>(static_cast<time>(to.time) - static_cast<time>(from.time)),
            static_cast<std::int32_t>(to.line - from.line),
            static_cast<std::int32_t>(to.frame - from.frame), to.echo_count};
}

shot_deltas corrections(const shot_deltas& slope, const shot_deltas& d) {
    return {d.time - slope.time, d.line - slope.line, d.frame - slope.frame, d.echo_count};
}

template<class Kinds>
echo_deltas deltas(const packed_echo& from, const packed_echo& to) {
    constexpr bool offsets = std::is_same_v<Kinds, echo_hr_1_kinds>;
    const int third_from = from.reflectance - (offsets ? from.amplitude : 0);
    const int third_to = to.reflectance - (offsets ? to.amplitude : 0);
    return {static_cast<std::int32_t>(to.range - from.range),
            static_cast<std::int16_t>(to.amplitude - from.amplitude),
            static_cast<std::int16_t>(third_to - third_from), to.flags,
            static_cast<std::int16_t>(to.deviation - from.deviation)};
}

/// Collects shots and their echoes. When they are written, a key shot comes before the echoes that
/// follow it, and behind all echoes of the shots before, since it empties a reader's queues.
template<class Kinds, class EchoKinds>
class key_frame_form : public packed_writer::form_writer {
  public:
    key_frame_form(packet_emitter& out, const packing_options& options)
        : out_(out)
        , shots_per_key_(std::max<std::size_t>(options.shots_per_key, 1))
        , batch_(std::clamp<std::size_t>(options.shots_per_packet, 1,
                                         element_limit<typename Kinds::frame>())) {}

    void shot(const packed_shot& s) override {
        const counted_shot c{s, 0};
        detail::require(static_cast<typename Kinds::time_type>(s.time) == s.time, "time", s.time);
        detail::require(key_holds<Kinds>(c), "line", s.line);
        detail::require(with_radiation || s.radiation == 0, "radiation", s.radiation);
        if (shots_.size() >= batch_) {
            flush();
        }
        shots_.push_back(c);
    }

    void echo(const packed_echo& e) override {
        counted_shot more = shots_.back();
        ++more.echo_count;
        detail::require(key_holds<Kinds>(more), "an echo count of", more.echo_count);
        echoes_.push_back(e);
        shots_.back() = more;
    }

    void block_head(const packed_block_head&) override { detail::refuse("sample blocks"); }
    void block(const packed_block&) override { detail::refuse("sample blocks"); }

    void flush() override {
        std::size_t echoes_due = 0;
        for (std::size_t i = 0; i < shots_.size();) {
            if (needs_key(shots_[i])) {
                write_echoes(echoes_due);
                echoes_due = 0;
                write_key(shots_[i]);
                echoes_due += shots_[i++].echo_count;
                continue;
            }
            const std::size_t n = write_frame(i);
            for (std::size_t k = 0; k < n; ++k) {
                echoes_due += shots_[i++].echo_count;
            }
        }
        write_echoes(echoes_due);
        shots_.clear();
        echoes_.clear();
        echoes_written_ = 0;
    }

  private:
    static constexpr bool with_radiation = std::is_same_v<Kinds, rad_kinds>;

    bool needs_key(const counted_shot& s) const {
        return !key_known_ || since_key_ >= shots_per_key_ ||
               !fixed_holds<Kinds>(deltas<Kinds>(last_, s));
    }

    void write_key(const counted_shot& s) {
        out_.emit<typename Kinds::key_writer>([&](auto& w) {
            if constexpr (std::is_same_v<Kinds, hr_kinds>) {
                w.time_counter_hr(s.time);
            } else {
                w.time_counter(narrowed{static_cast<std::int64_t>(s.time)});
            }
            w.echo_count(narrowed{s.echo_count});
            w.line_counter(s.line);
            w.frame_counter(s.frame);
            if constexpr (with_radiation) {
                w.background_radiation(s.radiation);
            }
        });
        last_ = s;
        key_known_ = true;
        since_key_ = 1;
        echo_known_ = false;
    }

    /// Writes shots from `first` on into one packet; returns their number.
    std::size_t write_frame(std::size_t first) {
        using writer = typename Kinds::frame_writer;
        const shot_deltas slope = deltas<Kinds>(last_, shots_[first]);
        const std::size_t most =
            std::min({element_limit<typename Kinds::frame>(), shots_.size() - first - 1,
                      shots_per_key_ - since_key_ - 1});
        corrections_.clear();
        while (corrections_.size() < most) {
            const std::size_t i = first + 1 + corrections_.size();
            const shot_deltas step = deltas<Kinds>(shots_[i - 1], shots_[i]);
            const shot_deltas d = corrections(slope, step);
            // A reader adds slope and correction as an unsigned number.
            if (step.time < 0 || !element_holds<Kinds>(d) ||
                shots_[i].radiation != shots_[first].radiation) {
                break;
            }
            corrections_.push_back(d);
        }
        const std::size_t n = corrections_.size();
        const std::size_t bits = writer::fixed_bits + n * layout_of(writer::index).element_bits;
        const std::size_t fill = bits % 32 != 0 ? 1 : 0;
        out_.emit<writer>(
            [&](auto& w) {
                write_fixed(w, slope);
                if constexpr (with_radiation) {
                    w.background_radiation(shots_[first].radiation);
                }
                for (std::size_t i = 0; i < n; ++i) {
                    write_element(w.element(i), corrections_[i]);
                }
                if (fill != 0) {
                    w.element(n).time_correction(closing_time_correction);
                }
            },
            n + fill);
        last_ = shots_[first + n];
        since_key_ += n + 1;
        return n + 1;
    }

    /// Writes the next `count` echoes.
    void write_echoes(std::size_t count) {
        const std::size_t end = echoes_written_ + count;
        while (echoes_written_ < end) {
            if (!echo_known_ || !element_holds<EchoKinds>(
                                    deltas<EchoKinds>(last_echo_, echoes_[echoes_written_]))) {
                write_key(echoes_[echoes_written_++]);
            } else {
                write_echo_frame(end);
            }
        }
    }

    void write_key(const packed_echo& e) {
        out_.emit<typename EchoKinds::key_writer>([&](auto& w) {
            w.range_counter(static_cast<std::int32_t>(e.range));
            w.amplitude(e.amplitude);
            if constexpr (std::is_same_v<EchoKinds, echo_hr_1_kinds>) {
                w.reflectance_offset(static_cast<std::int16_t>(e.reflectance - e.amplitude));
            } else {
                w.reflectance(static_cast<std::int16_t>(e.reflectance));
            }
            w.flags(e.flags);
            w.deviation(e.deviation);
        });
        last_echo_ = e;
        echo_known_ = true;
    }

    void write_echo_frame(std::size_t end) {
        const std::size_t most =
            std::min(element_limit<typename EchoKinds::frame>(), end - echoes_written_);
        echo_deltas_.clear();
        while (echo_deltas_.size() < most) {
            const packed_echo& e = echoes_[echoes_written_ + echo_deltas_.size()];
            const echo_deltas d = deltas<EchoKinds>(last_echo_, e);
            if (!element_holds<EchoKinds>(d)) {
                break;
            }
            echo_deltas_.push_back(d);
            last_echo_ = e;
        }
        out_.emit<typename EchoKinds::frame_writer>(
            [&](auto& w) {
                for (std::size_t i = 0; i < echo_deltas_.size(); ++i) {
                    write_element(w.element(i), echo_deltas_[i]);
                }
            },
            echo_deltas_.size());
        echoes_written_ += echo_deltas_.size();
    }

    packet_emitter& out_;
    const std::size_t shots_per_key_;
    const std::size_t batch_;
    std::vector<counted_shot> shots_; ///< not yet written, and their echoes
    std::vector<packed_echo> echoes_;
    std::size_t echoes_written_ = 0;
    std::vector<shot_deltas> corrections_; ///< of the frame in progress
    std::vector<echo_deltas> echo_deltas_;
    counted_shot last_; ///< what a reader knows
    packed_echo last_echo_;
    std::size_t since_key_ = 0; ///< shots written from the last key on
    bool key_known_ = false;
    bool echo_known_ = false;
};

} // namespace

std::unique_ptr<packed_writer::form_writer>
detail::make_key_frame_form(packet_emitter& out, packed_form form, const packing_options& options) {
    if (form == packed_form::packed) {
        return std::make_unique<key_frame_form<plain_kinds, echo_kinds>>(out, options);
    }
    if (form == packed_form::packed_rad) {
        return std::make_unique<key_frame_form<rad_kinds, echo_kinds>>(out, options);
    }
    if (options.echo_offsets) {
        return std::make_unique<key_frame_form<hr_kinds, echo_hr_1_kinds>>(out, options);
    }
    return std::make_unique<key_frame_form<hr_kinds, echo_hr_kinds>>(out, options);
}

} // namespace scanlib
