// Which records the writer chooses, and what it refuses.
#include "packed_stream.hpp"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

using namespace scanlib;
using namespace scanlib::testing;

namespace {

/// Shots at an even pace, each with one echo.
std::vector<shot_record> even(std::size_t n) {
    std::vector<shot_record> records(n);
    for (std::size_t i = 0; i < n; ++i) {
        const auto k = static_cast<std::uint32_t>(i);
        records[i].shot = {1000 + 100 * i, 10 + 3 * k, 20 + 2 * k, 0};
        records[i].echoes.push_back({5000 + 7 * k, 100, 50, 0, 1});
    }
    return records;
}

void expect_equal(const std::vector<words>& packets, const std::vector<shot_record>& records) {
    record_reader reader;
    feed(reader, packets);
    EXPECT_EQ(reader.records, records);
}

class OneForm {
  public:
    explicit OneForm(packed_form form)
        : emitter(std::make_shared<encoder_rxpmarker>(
              std::make_shared<test_support::memory_wconnection>(), encoder_capacity,
              encoder_headroom, true))
        , writer(emitter, form) {}
    packet_emitter emitter;
    packed_writer writer;
};

void expect_refused(packed_form form, const std::function<void(packed_writer&)>& write) {
    OneForm f(form);
    f.writer.shot({});
    EXPECT_THROW(write(f.writer), std::range_error);
}

std::uint32_t tag_at(const words& packet, std::size_t word) {
    return packet.at(2 + word) & 7;
}

} // namespace

TEST(PackedWriter, EvenShotsTakeOneKeyAndOneFrame) {
    const auto records = even(100);
    for (const auto& [form, key, frame] :
         {std::tuple{packed_form::packed, 45u, 46u}, std::tuple{packed_form::packed_rad, 51u, 52u},
          std::tuple{packed_form::packed_hr, 63u, 64u}}) {
        const auto packets = packed(records, form);
        EXPECT_EQ(count_of(packets, key), 1u);
        EXPECT_EQ(count_of(packets, frame), 1u);
        EXPECT_EQ(packets.size(), 4u); // and a key echo and a frame of the others
        expect_equal(packets, records);
    }
}

TEST(PackedWriter, EchoKindsFollowTheForm) {
    const auto records = even(10);
    packing_options offsets;
    offsets.echo_offsets = true;
    EXPECT_EQ(count_of(packed(records, packed_form::packed), 47), 1u);
    EXPECT_EQ(count_of(packed(records, packed_form::packed), 48), 1u);
    EXPECT_EQ(count_of(packed(records, packed_form::packed_hr), 65), 1u);
    EXPECT_EQ(count_of(packed(records, packed_form::packed_hr), 66), 1u);
    EXPECT_EQ(count_of(packed(records, packed_form::packed_hr, offsets), 92), 1u);
    EXPECT_EQ(count_of(packed(records, packed_form::packed_hr, offsets), 93), 1u);
}

TEST(PackedWriter, StepThatIsNoDeltaTakesAKey) {
    auto records = even(10);
    records[5].shot.line += 100000;
    for (std::size_t i = 6; i < 10; ++i) {
        records[i].shot.line += 100000;
    }
    const auto packets = packed(records, packed_form::packed);
    EXPECT_EQ(count_of(packets, 45), 2u);
    EXPECT_EQ(count_of(packets, 46), 2u);
    expect_equal(packets, records);
}

TEST(PackedWriter, StepThatIsNoCorrectionTakesANewFrame) {
    auto records = even(10);
    for (std::size_t i = 5; i < 10; ++i) {
        records[i].shot.line += 1000;
    }
    const auto packets = packed(records, packed_form::packed);
    EXPECT_EQ(count_of(packets, 45), 1u);
    EXPECT_EQ(count_of(packets, 46), 3u); // the step itself is the slope of a frame of its own
    expect_equal(packets, records);
}

TEST(PackedWriter, PlainFrameEndsItsHalfWordWithTheClosingPattern) {
    for (std::size_t n = 2; n < 6; ++n) {
        const auto packets = packed(even(n), packed_form::packed);
        const words& frame = packets.at(1);
        ASSERT_EQ(frame.at(1), head_of(46));
        const std::size_t elements = n - 2;
        EXPECT_EQ(frame.size(), 2 + (3 + elements + 1) / 2);
        if (elements % 2 == 0) {
            EXPECT_EQ(frame.back() >> 16 & 3, 2u) << n;
        }
        expect_equal(packets, even(n));
    }
}

TEST(PackedWriter, KeysComeAsOftenAsAskedFor) {
    packing_options options;
    options.shots_per_key = 10;
    for (const packed_form form :
         {packed_form::packed, packed_form::packed_rad, packed_form::packed_hr}) {
        const auto packets = packed(even(95), form, options);
        const std::uint32_t key = packets.front().at(1) >> 16;
        EXPECT_EQ(count_of(packets, key), 10u);
        expect_equal(packets, even(95));
    }
}

TEST(PackedWriter, EveryKeyBeginsTheEchoesAnewAsWell) {
    packing_options options;
    options.shots_per_key = 10;
    const auto packets = packed(even(95), packed_form::packed, options);
    EXPECT_EQ(count_of(packets, 47), 10u);
}

TEST(PackedWriter, ReaderThatBeginsAtAKeyGetsEverythingFromThere) {
    packing_options options;
    options.shots_per_key = 10;
    options.shots_per_packet = 10;
    const auto records = even(40);
    const auto packets = packed(records, packed_form::packed_hr, options);
    ASSERT_EQ(packets.size(), 16u);
    expect_equal({packets.begin() + 8, packets.end()}, {records.begin() + 20, records.end()});
}

TEST(PackedWriter, ShotWithMoreEchoesThanAnElementCountsBeginsAFrame) {
    auto records = even(6);
    records[3].echoes.assign(16, {1, 2, 3, 0, 4});
    auto packets = packed(records, packed_form::packed);
    EXPECT_EQ(count_of(packets, 46), 2u);
    expect_equal(packets, records);
    // The fixed part of an hr frame counts no more than an element does.
    packets = packed(records, packed_form::packed_hr);
    EXPECT_EQ(count_of(packets, 63), 2u);
    expect_equal(packets, records);
}

TEST(PackedWriter, ShotHoldsUpTo255EchoesInTheKeyForms) {
    for (const packed_form form :
         {packed_form::packed, packed_form::packed_rad, packed_form::packed_hr}) {
        std::vector<shot_record> records(1);
        records[0].echoes.assign(255, {1, 2, 3, 0, 4});
        expect_equal(packed(records, form), records);
        records[0].echoes.push_back({});
        EXPECT_THROW(packed(records, form), std::range_error);
    }
}

TEST(PackedWriter, ShotHoldsAnyNumberOfEchoesInTheSubpackageForms) {
    for (const packed_form form : {packed_form::shot_echo, packed_form::shot_echo_blocks}) {
        std::vector<shot_record> records(2);
        records[1].shot.time = 1;
        for (std::uint32_t i = 0; i < 5000; ++i) {
            records[0].echoes.push_back({i, 0, 0, 0, 0});
        }
        expect_equal(packed(records, form), records);
    }
}

TEST(PackedWriter, LongFramesKeepWithinTheLimitOfTheirKind) {
    packing_options options;
    options.shots_per_key = 100000;
    options.shots_per_packet = 100000;
    const auto records = even(20000);
    const auto packets = packed(records, packed_form::packed, options);
    for (const words& w : packets) {
        EXPECT_LE((w.size() - 2) * 32, 48u + 16383 * 64);
    }
    EXPECT_EQ(count_of(packets, 46), 2u);
    EXPECT_EQ(count_of(packets, 48), 2u);
    expect_equal(packets, records);
}

TEST(PackedWriter, RadiationIsThatOfTheWholeFrame) {
    auto records = even(10);
    for (std::size_t i = 4; i < 10; ++i) {
        records[i].shot.radiation = 9;
    }
    const auto packets = packed(records, packed_form::packed_rad);
    EXPECT_EQ(count_of(packets, 52), 2u);
    expect_equal(packets, records);
}

TEST(PackedWriter, FlagsBeyondAFrameTakeAKeyEcho) {
    auto records = even(10);
    records[5].echoes[0].flags = 0x8000;
    const auto packets = packed(records, packed_form::packed);
    EXPECT_EQ(count_of(packets, 47), 2u);
    expect_equal(packets, records);
}

TEST(PackedWriter, SubpackagesAreKeyDeltaThenSecondOrder) {
    auto records = even(4);
    records[3].shot.line += 100; // no correction of the slope, but a delta
    const auto packets = packed(records, packed_form::shot_echo);
    ASSERT_EQ(packets.size(), 1u);
    const words& p = packets[0];
    EXPECT_EQ(p.size(), 2u + 3 + 3 + 2 + 2 + 1 + 2 + 2 + 2);
    EXPECT_EQ(tag_at(p, 0), 1u);  // key shot
    EXPECT_EQ(tag_at(p, 3), 4u);  // key echo
    EXPECT_EQ(tag_at(p, 6), 2u);  // delta shot
    EXPECT_EQ(tag_at(p, 8), 5u);  // delta echo
    EXPECT_EQ(tag_at(p, 10), 3u); // second-order shot
    EXPECT_EQ(tag_at(p, 11), 5u);
    EXPECT_EQ(tag_at(p, 13), 2u);
    const words q = packed(records, packed_form::shot_echo_blocks).at(0);
    EXPECT_EQ(tag_at(q, 0), 0u);
    EXPECT_EQ(tag_at(q, 3), 3u);
    EXPECT_EQ(tag_at(q, 6), 1u);
    EXPECT_EQ(tag_at(q, 8), 4u);
    EXPECT_EQ(tag_at(q, 10), 2u);
}

TEST(PackedWriter, SubpackagePacketsStandForThemselves) {
    const auto records = even(3000);
    for (const packed_form form : {packed_form::shot_echo, packed_form::shot_echo_blocks}) {
        const auto packets = packed(records, form);
        ASSERT_GT(packets.size(), 3u);
        for (const words& w : packets) {
            EXPECT_LE(w.size(), 2u + 2048);
        }
        expect_equal(packets, records);
        record_reader last;
        words packet = packets.back();
        // Its first record may be an echo of the shot before; a reader of shots skips it.
        const std::size_t skipped =
            (tag_at(packet, 0) == (form == packed_form::shot_echo ? 4u : 3u));
        packet.erase(packet.begin() + 2, packet.begin() + 2 + static_cast<long>(3 * skipped));
        last.dispatch(packet.data(), packet.data() + packet.size());
        ASSERT_FALSE(last.records.empty());
        EXPECT_EQ(last.records.back(), records.back());
        EXPECT_EQ(last.records.front().shot.time,
                  records[records.size() - last.records.size()].shot.time);
    }
}

TEST(PackedWriter, TimeThatGoesBackTakesAKey) {
    auto records = even(10);
    records[5].shot.time = 1;
    for (const packed_form form : {packed_form::packed, packed_form::packed_hr,
                                   packed_form::shot_echo, packed_form::shot_echo_blocks}) {
        expect_equal(packed(records, form), records);
    }
}

TEST(PackedWriter, TimeThatGoesBackALittleIsNoCorrection) {
    std::vector<shot_record> records(3);
    records[0].shot.time = 100;
    records[1].shot.time = 105;
    records[2].shot.time = 103; // slope 5, correction -7, their sum negative
    for (const packed_form form : {packed_form::packed, packed_form::packed_hr,
                                   packed_form::shot_echo, packed_form::shot_echo_blocks}) {
        expect_equal(packed(records, form), records);
    }
}

TEST(PackedWriter, RefusesWhatTheKeyFormsDoNotHold) {
    for (const packed_form form : {packed_form::packed, packed_form::packed_rad}) {
        expect_refused(form, [](auto& w) { w.shot({1ull << 32, 0, 0, 0}); });
        expect_refused(form, [](auto& w) { w.shot({0, 1u << 24, 0, 0}); });
        expect_refused(form, [](auto& w) { w.block({}); });
        expect_refused(form, [](auto& w) { w.block_head({}); });
    }
    expect_refused(packed_form::packed, [](auto& w) { w.shot({0, 0, 0, 1}); });
    expect_refused(packed_form::packed_hr, [](auto& w) { w.shot({0, 0, 0, 1}); });
    expect_refused(packed_form::packed_hr, [](auto& w) { w.shot({0, 1u << 24, 0, 0}); });
}

TEST(PackedWriter, RefusesWhatTheSubpackageFormsDoNotHold) {
    for (const packed_form form : {packed_form::shot_echo, packed_form::shot_echo_blocks}) {
        expect_refused(form, [](auto& w) { w.shot({1ull << 49, 0, 0, 0}); });
        expect_refused(form, [](auto& w) { w.shot({0, 1u << 22, 0, 0}); });
        expect_refused(form, [](auto& w) { w.shot({0, 0, 1u << 22, 0}); });
        expect_refused(form, [](auto& w) { w.shot({0, 0, 0, 1}); });
        expect_refused(form, [](auto& w) { w.echo({1u << 25, 0, 0, 0, 0}); });
        expect_refused(form, [](auto& w) { w.echo({0u - (1u << 25) - 1, 0, 0, 0, 0}); });
        expect_refused(form, [](auto& w) { w.echo({0, 0, 0, 1, 0}); });
    }
    expect_refused(packed_form::shot_echo, [](auto& w) { w.block({}); });
    expect_refused(packed_form::shot_echo, [](auto& w) { w.block_head({}); });
}

TEST(PackedWriter, RefusesBlocksBeyondTheirFields) {
    const std::vector<std::uint32_t> samples(1024);
    const std::vector<packed_block_entry> entries(8);
    const packed_block_entry wide[] = {{16, 0, 0}, {0, 1u << 18, 0}, {0, 0, 1u << 10}};
    constexpr auto form = packed_form::shot_echo_blocks;
    expect_refused(form, [&](auto& w) { w.block({0, 0, 0, 0, samples}); });
    expect_refused(form, [&](auto& w) { w.block({0, 16, 0, 0, {}}); });
    expect_refused(form, [&](auto& w) { w.block({0, 0, 32, 0, {}}); });
    expect_refused(form, [&](auto& w) { w.block({0, 0, 0, 128, {}}); });
    expect_refused(form, [&](auto& w) { w.block_head({0, entries}); });
    for (const packed_block_entry& e : wide) {
        expect_refused(form, [&](auto& w) { w.block_head({0, {&e, 1}}); });
    }
}

TEST(PackedWriter, RefusedValueChangesNothing) {
    const auto records = even(5);
    for (const packed_form form : {packed_form::packed, packed_form::packed_hr,
                                   packed_form::shot_echo, packed_form::shot_echo_blocks}) {
        expect_equal(packets_of([&](packet_emitter& emitter) {
                         packed_writer writer(emitter, form);
                         for (const shot_record& r : records) {
                             writer.shot(r.shot);
                             EXPECT_THROW(writer.shot({0, 1u << 24, 0, 0}), std::range_error);
                             writer.echo(r.echoes[0]);
                         }
                         writer.flush();
                     }),
                     records);
    }
}

TEST(PackedWriter, EchoAndBlocksNeedAShot) {
    for (const packed_form form : {packed_form::packed, packed_form::shot_echo_blocks}) {
        OneForm f(form);
        EXPECT_THROW(f.writer.echo({}), std::logic_error);
        EXPECT_THROW(f.writer.block({}), std::logic_error);
        EXPECT_THROW(f.writer.block_head({}), std::logic_error);
        f.writer.shot({});
        f.writer.flush();
        EXPECT_THROW(f.writer.echo({}), std::logic_error);
    }
}

TEST(PackedWriter, FlushOfNothingWritesNothing) {
    for (const packed_form form : {packed_form::packed, packed_form::shot_echo}) {
        OneForm f(form);
        f.writer.flush();
        EXPECT_EQ(f.emitter.packets(), 0u);
    }
}
