#pragma once

#include "scanlib/compressed_packets.hpp"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace scanlib::testing {

/// Writes down every ordinary handler that an expansion calls, as text: the kind and its fields.
class expansion_recorder : public compressed_packets {
  public:
    explicit expansion_recorder(bool skip_sample_blocks = false)
        : compressed_packets(skip_sample_blocks) {
        set_loss_log(&losses);
    }

    std::vector<std::string> calls;
    loss_log losses;
    std::vector<packet_id> attempts; ///< pairs that on_packet got

    /// What the packet of these payload words calls.
    std::vector<std::string> run(packet_id id, const std::vector<std::uint32_t>& payload) {
        std::vector<std::uint32_t> words{0xFFFFFFFFu, id.id << 16 | id.version};
        words.insert(words.end(), payload.begin(), payload.end());
        calls.clear();
        dispatch(words.data(), words.data() + words.size());
        return std::exchange(calls, {});
    }

    unknown_walk on_packet(packet_id id, const packet_head& head) override {
        attempts.push_back(id);
        return basic_packets::on_packet(id, head);
    }
    void on_laser_shot(packets::laser_shot& p) override { add("shot", {p.time_counter()}); }
    void on_laser_shot_1angle(packets::laser_shot_1angle& p) override {
        add("1angle", {p.line_counter()});
    }
    void on_laser_shot_2angles(packets::laser_shot_2angles& p) override {
        add("2angles", {p.frame_counter()});
    }
    void on_laser_shot_2angles_rad(packets::laser_shot_2angles_rad& p) override {
        add("rad",
            {p.time_counter(), p.line_counter(), p.frame_counter(), p.background_radiation()});
    }
    void on_laser_shot_2angles_hr(packets::laser_shot_2angles_hr& p) override {
        add("hr",
            {static_cast<std::int64_t>(p.time_counter_hr()), p.line_counter(), p.frame_counter()});
    }
    void on_echo(packets::echo& p) override {
        add("echo", {p.range_counter(), p.amplitude(), p.reflectance(), p.flags(), p.deviation()});
    }
    void on_sbl_dg_channel_header_1(packets::sbl_dg_channel_header_1& p,
                                    const std::uint32_t* end) override {
        add_words("head", p.words(), end);
    }
    void on_sbl_dg_channel_data_compressed(packets::sbl_dg_channel_data_compressed& p,
                                           const std::uint32_t* end) override {
        add_words("block", p.words(), end);
    }

  private:
    void add(std::string text, std::initializer_list<std::int64_t> fields) {
        for (const std::int64_t f : fields) {
            text += ' ' + std::to_string(f);
        }
        calls.push_back(std::move(text));
    }
    void add_words(std::string text, const std::uint32_t* begin, const std::uint32_t* end) {
        for (; begin != end; ++begin) {
            text += ' ' + std::to_string(*begin);
        }
        calls.push_back(std::move(text));
    }
};

/// Words put together bit by bit: slow, and by another way than the product places fields.
class bit_text {
  public:
    explicit bit_text(std::size_t words = 0) : words_(words) {}

    /// The low `width` bits of `value`, from bit `bit` on.
    bit_text& put(std::size_t bit, std::size_t width, std::int64_t value) {
        for (std::size_t i = 0; i < width; ++i) {
            const std::size_t at = bit + i;
            if (at / 32 >= words_.size()) {
                words_.resize(at / 32 + 1);
            }
            const auto one = static_cast<std::uint32_t>(value >> i & 1);
            words_[at / 32] = (words_[at / 32] & ~(1u << at % 32)) | one << at % 32;
        }
        return *this;
    }

    /// Adds `other` behind.
    bit_text& add(const bit_text& other) {
        words_.insert(words_.end(), other.words_.begin(), other.words_.end());
        return *this;
    }

    const std::vector<std::uint32_t>& words() const { return words_; }
    operator const std::vector<std::uint32_t>&() const { return words_; }

  private:
    std::vector<std::uint32_t> words_;
};

} // namespace scanlib::testing
