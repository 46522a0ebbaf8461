#include "scanlib/sample_codec.hpp"
#include "scanlib/saturate.hpp"
#include "scanlib/wave.hpp"

#include <algorithm>
#include <limits>

// From sample-block packets to the blocks that wait for their shot.
namespace scanlib {

namespace {

constexpr float nan32 = std::numeric_limits<float>::quiet_NaN();
constexpr wave_peak no_peak{nan32, nan32};

/// Fixed-point units of the digitiser's pulses: 4 or 2 bits behind the point.
constexpr float sixteenth = 0x1p-4F;
constexpr float quarter = 0x1p-2F;

/// Unit of the fine time of a header, in samples.
constexpr double fine_time_unit = 0x1p-12;

/// Slots of the newest header.
constexpr std::size_t peak_slots = 16;

/// The channel of the one sample that a header holds.
constexpr std::uint64_t header_sample_channel = 2;

/// What a record and a block take beside their samples, in samples.
constexpr std::size_t record_weight = 64;
constexpr std::size_t block_weight = 256;

std::size_t weight_of(const wave_record& r) noexcept {
    return record_weight + r.samples.capacity();
}

std::size_t weight_of(const wave_block& block) noexcept {
    std::size_t weight = block_weight;
    for (const wave_record& r : block.records) {
        weight += weight_of(r);
    }
    return weight;
}

/// Bits of a packed payload, the last word of which is used in part.
template<class Packet>
std::size_t packed_bits(const Packet& p) {
    const std::size_t last = p.last_word_bits() == 0 ? 32 : p.last_word_bits();
    return p.size() == 0 ? 0 : (p.size() - std::size_t{1}) * 32 + last;
}

/// Words of 16 bits of a payload that is made of them.
template<class Packet>
std::size_t words16_of(const Packet& p, bool odd) {
    const std::size_t words =
        static_cast<std::size_t>(p.end_of_words() - p.words() - Packet::fixed_bits / 32) * 2;
    return words - (odd && words != 0 ? 1 : 0);
}

template<class Packet>
const std::uint32_t* payload_of(const Packet& p) {
    return p.words() + Packet::fixed_bits / 32;
}

/// Most samples that a packet of the compressed form becomes.
template<class Packet>
std::size_t compressed_samples(const Packet& p, bool uncompress) {
    const std::size_t words = words16_of(p, false);
    return uncompress ? most_decompressed(words) : words;
}

template<class Header>
void set_peaks(wave_block& block, const Header& p) {
    block.peaks.assign({{p.position_0() * sixteenth, p.amplitude_0() * quarter},
                        {p.position_1() * sixteenth, p.amplitude_1() * quarter},
                        no_peak,
                        no_peak});
}

} // namespace

// The blocks.

std::unique_ptr<wave_block> wave::take_oldest() {
    auto block = std::move(open_blocks_[first_open_++]);
    if (first_open_ == open_blocks_.size()) {
        open_blocks_.clear();
        first_open_ = 0;
    }
    open_samples_ -= std::min(open_samples_, weight_of(*block));
    return block;
}

void wave::drop_oldest(loss cause) {
    note_loss(cause);
    pool_.give_back(take_oldest());
}

void wave::append_open(std::unique_ptr<wave_block> block) {
    if (first_open_ > open_blocks_.size() / 2) {
        // Moves fewer than were taken since the last time.
        open_blocks_.erase(open_blocks_.begin(),
                           open_blocks_.begin() + static_cast<std::ptrdiff_t>(first_open_));
        first_open_ = 0;
    }
    open_blocks_.push_back(std::move(block));
}

/// A new block of that time, or null where its time is not known.
template<class Ticks>
wave_block* wave::open_block(Ticks ticks) {
    start_measurement();
    const sync_time t = block_sync_.convert(ticks);
    if (sync_to_pps() && !block_sync_.valid()) {
        note_loss(loss::shot_held_back);
        return nullptr;
    }
    have_wave_data = true;
    if (open_count() == open_block_limit) {
        drop_oldest(loss::block_beyond_limit);
    }
    auto block = pool_.take_block();
    block->time_internal = t.internal;
    block->time = sync_to_pps() ? t.external : t.internal;
    block->is_pps_locked = block_sync_.locked();
    append_open(std::move(block));
    open_samples_ += block_weight;
    return open_blocks_.back().get();
}

wave_record& wave::add_record(wave_block& block, std::uint64_t channel, double time_sorg) {
    wave_record& r = block.records.emplace_back();
    r.channel = channel;
    r.time_sorg = time_sorg;
    open_samples_ += weight_of(r);
    return r;
}

/// The newest block, if there is one and room for the samples.
wave_block* wave::block_for_samples(std::size_t sample_count) {
    if (open_count() == 0) {
        note_loss(loss::samples_without_block);
        return nullptr;
    }
    const std::size_t needed = sample_count + record_weight;
    while (open_samples_ + needed > open_sample_limit && open_count() > 1) {
        drop_oldest(loss::block_beyond_limit);
    }
    if (open_samples_ + needed > open_sample_limit) {
        note_loss(loss::block_beyond_limit);
        return nullptr;
    }
    return open_blocks_.back().get();
}

/// Replaces the samples of a record of an open block: `fill` gets a list of any content.
template<class Fill>
void wave::fill_samples(wave_record& record, Fill fill) {
    open_samples_ -= record.samples.capacity();
    if (record.samples.capacity() == 0) {
        record.samples = pool_.take_samples();
    }
    fill(record.samples);
    open_samples_ += record.samples.capacity();
}

// Headers.

void wave::add_header_sample(wave_block& block, std::uint16_t sample) {
    fill_samples(add_record(block, header_sample_channel, 0),
                 [&](auto& samples) { samples.assign(1, sample); });
}

void wave::on_sbl_dg_header(packets::sbl_dg_header& p) {
    if (wave_block* block = open_block(p.time_counter())) {
        set_peaks(*block, p);
        add_record(*block, reference_channel_index,
                   (p.coarse_time() - p.fine_time() * fine_time_unit) *
                           sampling_time_of(reference_channel_index) +
                       t_null_pdae);
        add_header_sample(*block, p.sample());
    }
}

void wave::on_sbl_dg_header_hr(packets::sbl_dg_header_hr& p) {
    if (wave_block* block = open_block(p.time_counter_hr())) {
        set_peaks(*block, p);
        add_record(*block, reference_channel_index, t_null_pdae);
        add_header_sample(*block, p.sample());
    }
}

void wave::on_sbl_dg_channel_header(packets::sbl_dg_channel_header& p,
                                    const std::uint32_t* /*end*/) {
    if (wave_block* block = open_block(p.time_counter_hr())) {
        // More entries than slots can only come from a broken packet.
        for (std::size_t i = 0; i < std::min<std::size_t>(p.size(), peak_slots); ++i) {
            const auto e = p[i];
            block->peaks.emplace_back(static_cast<float>(e.position()) * sixteenth,
                                      static_cast<float>(e.amplitude()) * sixteenth);
        }
        add_record(*block, reference_channel_index, t_null_pdae);
    }
}

void wave::on_sbl_dg_channel_header_1(packets::sbl_dg_channel_header_1& p,
                                      const std::uint32_t* /*end*/) {
    if (wave_block* block = open_block(p.time_counter_hr())) {
        block->peaks.assign(peak_slots, no_peak);
        for (std::size_t i = 0; i < p.size(); ++i) {
            const auto e = p[i];
            block->peaks[e.slot()] = {static_cast<float>(e.position()) * sixteenth,
                                      static_cast<float>(e.amplitude()) * quarter};
        }
        add_record(*block, reference_channel_index, t_null_pdae);
    }
}

// Samples.

double wave::sampling_time_of(std::uint64_t channel) const noexcept {
    return channel < channels.size() ? channels[channel].sampling_time
                                     : std::numeric_limits<double>::quiet_NaN();
}

/// Start of a run of samples: told in samples from the one in which the shot lies. `ticks` is the
/// shot's time in high-resolution counts.
double wave::high_resolution_start(std::int32_t block_field, std::uint64_t channel,
                                   std::uint64_t ticks) const noexcept {
    const double sampling = sampling_time_of(channel);
    const std::uint64_t in_sample =
        channel < channels.size() ? channels[channel].ticks_per_sample : 0;
    const std::uint64_t r = in_sample == 0 ? 0 : ticks % in_sample;
    return block_field * sampling - static_cast<double>(r) * systime_hr_unit;
}

/// Words of 16 bits are the samples.
template<class Packet>
void wave::store_words16(const Packet& p, wave_record& record) {
    const std::size_t words = words16_of(p, p.odd() != 0);
    fill_samples(record, [&](auto& samples) {
        samples.resize(words);
        unpack_samples(payload_of(p), words, 16, samples.data());
    });
}

template<class Packet>
void wave::store_packed(const Packet& p, std::size_t sample_count, wave_record& record) {
    record.is_compressed = 0;
    fill_samples(record, [&](auto& samples) {
        samples.resize(sample_count);
        unpack_samples(payload_of(p), sample_count, p.bit_width(), samples.data());
    });
}

template<class Packet>
void wave::store_compressed(const Packet& p, wave_record& record) {
    record.is_compressed = uncompress_ ? 0 : 1;
    if (!uncompress_) {
        store_words16(p, record);
        return;
    }
    const std::size_t words = words16_of(p, p.odd() != 0);
    fill_samples(record, [&](auto& samples) {
        samples.clear();
        decompress_samples(payload_of(p), words, samples);
    });
}

void wave::on_sbl_dg_data(packets::sbl_dg_data& p, const std::uint32_t* /*end*/) {
    if (wave_block* block = block_for_samples(words16_of(p, false))) {
        store_words16(
            p, add_record(*block, p.channel(), p.block_field() * sampling_time_of(p.channel())));
    }
}

void wave::on_sbl_dg_data_compressed(packets::sbl_dg_data_compressed& p,
                                     const std::uint32_t* /*end*/) {
    if (wave_block* block = block_for_samples(compressed_samples(p, uncompress_))) {
        store_compressed(
            p, add_record(*block, p.channel(), p.block_field() * sampling_time_of(p.channel())));
    }
}

void wave::on_sbl_dg_data_hr(packets::sbl_dg_data_hr& p, const std::uint32_t* /*end*/) {
    const std::size_t count = packed_sample_count(packed_bits(p), p.bit_width());
    if (wave_block* block = block_for_samples(count)) {
        // Whole counts here, the nearest count in the packets by channel.
        const auto ticks = saturate<std::uint64_t>(block->time_internal / systime_hr_unit);
        store_packed(p, count,
                     add_record(*block, p.channel(),
                                high_resolution_start(p.block_field(), p.channel(), ticks)));
    }
}

void wave::on_sbl_dg_data_compressed_hr(packets::sbl_dg_data_compressed_hr& p,
                                        const std::uint32_t* /*end*/) {
    if (wave_block* block = block_for_samples(compressed_samples(p, uncompress_))) {
        const auto ticks = saturate<std::uint64_t>(block->time_internal / systime_hr_unit);
        store_compressed(p, add_record(*block, p.channel(),
                                       high_resolution_start(p.block_field(), p.channel(), ticks)));
    }
}

/// The record that samples of a channel go to: the first one for the reference channel.
wave_record* wave::record_of_channel(std::uint64_t channel, std::int16_t block_field,
                                     std::size_t sample_count) {
    if (!channel_mask.test(channel)) {
        note_loss(loss::masked_record);
        return nullptr;
    }
    wave_block* block = block_for_samples(sample_count);
    if (block == nullptr) {
        return nullptr;
    }
    const auto ticks = saturate<std::uint64_t>(block->time_internal / systime_hr_unit + 0.5);
    const double start = high_resolution_start(block_field, channel, ticks);
    if (channel != reference_channel_index) {
        return &add_record(*block, channel, start);
    }
    wave_record& reference = block->records.front();
    reference.channel = channel;
    reference.time_sorg = start;
    return &reference;
}

void wave::on_sbl_dg_channel_data(packets::sbl_dg_channel_data& p, const std::uint32_t* /*end*/) {
    const std::size_t count = packed_sample_count(packed_bits(p), p.bit_width());
    if (wave_record* r = record_of_channel(p.channel(), p.block_field(), count)) {
        store_packed(p, count, *r);
    }
}

void wave::on_sbl_dg_channel_data_compressed(packets::sbl_dg_channel_data_compressed& p,
                                             const std::uint32_t* /*end*/) {
    if (wave_record* r =
            record_of_channel(p.channel(), p.block_field(), compressed_samples(p, uncompress_))) {
        store_compressed(p, *r);
    }
}

} // namespace scanlib
