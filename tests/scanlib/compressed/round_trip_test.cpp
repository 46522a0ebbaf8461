// Whatever is packed comes back equal, in every form.
#include "packed_stream.hpp"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

using namespace scanlib;
using namespace scanlib::testing;

namespace {

/// Differences of all the sizes at which a form changes its record: tiny, of a delta, of a key.
rc::Gen<std::int64_t> step() {
    return rc::gen::oneOf(rc::gen::inRange<std::int64_t>(-2, 3),
                          rc::gen::inRange<std::int64_t>(-600, 600),
                          rc::gen::inRange<std::int64_t>(-140000, 140000),
                          rc::gen::inRange<std::int64_t>(-(1ll << 30), 1ll << 30),
                          rc::gen::arbitrary<std::int64_t>());
}

/// Time mostly goes on evenly, as the forms expect.
rc::Gen<std::int64_t> time_step() {
    return rc::gen::weightedOneOf<std::int64_t>({{6, rc::gen::inRange<std::int64_t>(99, 102)},
                                                 {3, rc::gen::inRange<std::int64_t>(0, 300)},
                                                 {1, step()}});
}

struct echo_step {
    std::int64_t range, amplitude, reflectance, flags, deviation;
};
struct shot_step {
    std::int64_t time, line, frame, radiation;
    std::vector<echo_step> echoes;
};

rc::Gen<echo_step> echo_steps() {
    return rc::gen::construct<echo_step>(step(), step(), step(),
                                         rc::gen::inRange<std::int64_t>(0, 4), step());
}
rc::Gen<std::int64_t> mostly_small() {
    return rc::gen::weightedOneOf<std::int64_t>(
        {{9, rc::gen::inRange<std::int64_t>(-8, 8)}, {1, step()}});
}
rc::Gen<shot_step> shot_steps() {
    return rc::gen::construct<shot_step>(
        time_step(), mostly_small(), mostly_small(), rc::gen::inRange<std::int64_t>(0, 2),
        rc::gen::scale(0.1, rc::gen::container<std::vector<echo_step>>(echo_steps())));
}

/// What a form can hold, in bits.
struct limits {
    packed_form form;
    unsigned time, line, frame, range, flags;
    bool radiation;
};

std::int64_t low(std::int64_t value, unsigned bits) {
    return bits == 64 ? value : value & ((1ll << bits) - 1);
}

/// Walks along the steps within the limits.
std::vector<shot_record> walk(const std::vector<shot_step>& steps, const limits& l) {
    std::vector<shot_record> records;
    std::uint64_t time = 1000, line = 1000, frame = 1000;
    std::uint64_t range = 0, amplitude = 0, reflectance = 0, flags = 0, deviation = 0;
    for (const shot_step& s : steps) {
        shot_record& r = records.emplace_back();
        time += static_cast<std::uint64_t>(s.time);
        line += static_cast<std::uint64_t>(s.line);
        frame += static_cast<std::uint64_t>(s.frame);
        const auto bits = [](std::uint64_t v, unsigned n) {
            return static_cast<std::uint64_t>(low(static_cast<std::int64_t>(v), n));
        };
        r.shot.time = bits(time, l.time);
        r.shot.line = static_cast<std::uint32_t>(bits(line, l.line));
        r.shot.frame = static_cast<std::uint32_t>(bits(frame, l.frame));
        r.shot.radiation = static_cast<std::uint16_t>(l.radiation ? s.radiation : 0);
        for (const echo_step& e : s.echoes) {
            range += static_cast<std::uint64_t>(e.range);
            amplitude += static_cast<std::uint64_t>(e.amplitude);
            reflectance += static_cast<std::uint64_t>(e.reflectance);
            flags += static_cast<std::uint64_t>(e.flags);
            deviation += static_cast<std::uint64_t>(e.deviation);
            // Sign-extended from the bits that the form has for a range.
            const std::uint64_t half = 1ull << (l.range - 1);
            r.echoes.push_back({static_cast<std::uint32_t>((bits(range, l.range) ^ half) - half),
                                static_cast<std::uint16_t>(amplitude),
                                static_cast<std::uint16_t>(reflectance),
                                static_cast<std::uint16_t>(bits(flags, l.flags)),
                                static_cast<std::uint16_t>(deviation)});
        }
    }
    return records;
}

void comes_back_equal(const limits& l, packing_options options) {
    const auto records = walk(*rc::gen::container<std::vector<shot_step>>(shot_steps()), l);
    options.shots_per_key = *rc::gen::element<std::size_t>(1, 2, 10, 1000);
    options.shots_per_packet = *rc::gen::element<std::size_t>(1, 3, 64, 1000);
    record_reader reader;
    feed(reader, packed(records, l.form, options));
    RC_ASSERT(reader.records == records);
    RC_ASSERT(reader.losses.count(loss::packed_leftover) == 0u);
    RC_ASSERT(reader.losses.count(loss::short_subpackage) == 0u);
}

} // namespace

RC_GTEST_PROP(RoundTrip, Packed, ()) {
    comes_back_equal({packed_form::packed, 32, 24, 32, 32, 16, false}, {});
}

RC_GTEST_PROP(RoundTrip, PackedRad, ()) {
    comes_back_equal({packed_form::packed_rad, 32, 24, 32, 32, 16, true}, {});
}

RC_GTEST_PROP(RoundTrip, PackedHr, ()) {
    comes_back_equal({packed_form::packed_hr, 64, 24, 32, 32, 16, false}, {});
}

RC_GTEST_PROP(RoundTrip, PackedHrWithEchoOffsets, ()) {
    packing_options options;
    options.echo_offsets = true;
    comes_back_equal({packed_form::packed_hr, 64, 24, 32, 32, 16, false}, options);
}

RC_GTEST_PROP(RoundTrip, ShotEcho, ()) {
    comes_back_equal({packed_form::shot_echo, 49, 22, 22, 26, 0, false}, {});
}

RC_GTEST_PROP(RoundTrip, ShotEchoBlocks, ()) {
    comes_back_equal({packed_form::shot_echo_blocks, 49, 22, 22, 26, 0, false}, {});
}

RC_GTEST_PROP(RoundTrip, SampleBlocks, ()) {
    struct sent {
        std::vector<packed_block_entry> entries;
        std::vector<std::uint32_t> samples;
        packed_block block;
        std::uint16_t value;
    };
    const auto count = *rc::gen::inRange<std::size_t>(1, 30);
    std::vector<sent> all(count);
    std::vector<shot_record> expected;
    for (sent& s : all) {
        const auto n = *rc::gen::inRange<std::size_t>(0, 8);
        for (std::size_t i = 0; i < n; ++i) {
            s.entries.push_back({*rc::gen::inRange(0u, 16u), *rc::gen::inRange(0u, 1u << 18),
                                 *rc::gen::inRange(0u, 1u << 10)});
        }
        s.samples.resize(*rc::gen::element<std::size_t>(0, 1, 40, 1023));
        for (std::uint32_t& w : s.samples) {
            w = *rc::gen::arbitrary<std::uint32_t>();
        }
        s.value = *rc::gen::arbitrary<std::uint16_t>();
        s.block.time = *rc::gen::arbitrary<std::int16_t>();
        s.block.channel = *rc::gen::element<std::uint8_t>(0, 1, 4, 6, 15);
        s.block.last_word_bits = *rc::gen::inRange<std::uint8_t>(0, 32);
        s.block.bit_width = *rc::gen::inRange<std::uint8_t>(0, 128);
        s.block.samples = s.samples;
        shot_record& r = expected.emplace_back();
        r.shot.time = expected.size() * 1000;
        words head{static_cast<std::uint32_t>(r.shot.time), 0, s.value, 0};
        for (const packed_block_entry& e : s.entries) {
            head.push_back(e.channel | e.value << 4 | e.second_value << 22);
        }
        words block{
            static_cast<std::uint16_t>(s.block.time) | std::uint32_t{s.block.channel} << 16 |
            std::uint32_t{s.block.last_word_bits} << 20 | std::uint32_t{s.block.bit_width} << 25};
        block.insert(block.end(), s.samples.begin(), s.samples.end());
        r.heads.push_back(head);
        r.blocks.push_back(block);
        r.echoes.push_back({5, 6, 7, 0, 8});
    }
    record_reader reader;
    feed(reader, packets_of([&](packet_emitter& emitter) {
             packed_writer writer(emitter, packed_form::shot_echo_blocks);
             for (std::size_t i = 0; i < count; ++i) {
                 writer.shot(expected[i].shot);
                 writer.block_head({all[i].value, all[i].entries});
                 writer.block(all[i].block);
                 writer.echo(expected[i].echoes[0]);
             }
             writer.flush();
         }));
    RC_ASSERT(reader.records == expected);
}
