#include "scanlib/rxp_istream.hpp"

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "packet_streams.hpp"
#include "scanlib/packets.hpp"

namespace {

using namespace packet_streams;
using scanlib::packet_id;
using scanlib::rxp_istream;
using test_support::memory_rconnection;

rxp_istream over(const bytes& stream) {
    rxp_istream in;
    in.attach(std::make_shared<memory_rconnection>(stream));
    return in;
}

class closing : public memory_rconnection {
  public:
    using memory_rconnection::memory_rconnection;
    void close() override { ++closes; }
    int closes = 0;
};

TEST(RxpIstream, WithoutAStreamItFails) {
    rxp_istream in;
    EXPECT_TRUE(in.fail());
    EXPECT_FALSE(in.is_open());
    EXPECT_FALSE(in.next());
    char byte = 0;
    EXPECT_EQ(in.raw_read(&byte, 1), 0u);
    EXPECT_EQ(in.tell(), 0u);
    EXPECT_EQ(streams::failure([&] { in.seek(0); }), "rxp_istream: not open");
}

TEST(RxpIstream, EveryFormOfTheHeadTellsThePair) {
    const bytes stream = streams::encode_all(
        {{0xFFFFFFFF, 0x000A0002, 1, 2, 3}, {0xFFFFFFFE, 9}, {0xFFFFFFFD, 4, 5}, {0xFFFFFF07, 6}},
        false);
    EXPECT_EQ(
        read_packets(stream),
        (packets{{{10, 2}, {1, 2, 3}}, {{65535, 65535}, {9}}, {{50, 0}, {4, 5}}, {{0, 7}, {6}}}));
}

TEST(RxpIstream, HeaderGivesItsEntriesTheCodesFromOneOn) {
    const packet head = header({{10, 2}, {58, 0}});
    const bytes stream = streams::encode_all({streams::concat({0xFFFFFFFF, 0x00010000}, head.body),
                                              {0xFFFFFF02, 5},
                                              {0xFFFFFF01, 6},
                                              {0xFFFFFF03, 7}},
                                             false);
    rxp_istream in = over(stream);
    packets found;
    while (in.next()) {
        found.push_back({in.id(), {in.body().begin(), in.body().end()}});
    }
    EXPECT_EQ(found, (packets{head, {{58, 0}, {5}}, {{10, 2}, {6}}, {{0, 3}, {7}}}));
    EXPECT_EQ(in.known_ids(), (std::set<packet_id>{{10, 2}, {58, 0}}));
    EXPECT_EQ(in.short_codes().size(), 2u);
}

TEST(RxpIstream, SecondHeaderOverwritesTheCodesThatItAssigns) {
    const packet first = header({{10, 2}, {58, 0}});
    const packet second = header({{40, 0}});
    const bytes stream =
        streams::encode_all({streams::concat({0xFFFFFFFF, 0x00010000}, first.body),
                             streams::concat({0xFFFFFFFF, 0x00010000}, second.body),
                             {0xFFFFFF01, 5},
                             {0xFFFFFF02, 6}},
                            false);
    const packets found = read_packets(stream);
    EXPECT_EQ(found.at(2).id, (packet_id{40, 0}));
    EXPECT_EQ(found.at(3).id, (packet_id{58, 0}));
}

TEST(RxpIstream, Code255IsPassedOver) {
    std::vector<packet_id> many;
    for (std::uint32_t n = 0; n < 300; ++n) {
        many.push_back({1000 + n, 0});
    }
    rxp_istream in = over(framed({header(many)}));
    EXPECT_TRUE(in.next());
    EXPECT_EQ(in.short_codes().size(), 254u);
    EXPECT_EQ(in.known_ids().size(), 254u);
}

TEST(RxpIstream, HeaderShorterThanItsFixedPartThrows) {
    packet cut = header();
    cut.body.pop_back();
    rxp_istream in = over(framed({cut}));
    EXPECT_THROW(in.next(), std::range_error);
    rxp_istream again = over(framed({cut}));
    EXPECT_EQ(streams::failure([&] { again.next(); }), "Missing data for sequence.");
}

TEST(RxpIstream, TypedReadGivesTheViewOfItsKind) {
    rxp_istream in = over(framed({shot(77)}));
    std::optional<scanlib::packets::laser_shot> view;
    in >> view;
    ASSERT_TRUE(view);
    EXPECT_EQ(view->time_counter(), 77u);
    in >> view;
    EXPECT_FALSE(view);
    EXPECT_TRUE(in.fail());
}

TEST(RxpIstream, TypedReadOfAnotherKindTellsBoth) {
    rxp_istream in = over(framed({{{10, 2}, {1, 2, 3}}}));
    std::optional<scanlib::packets::laser_shot> view;
    EXPECT_EQ(streams::failure([&] { in >> view; }),
              "rxp_istream: id mismatch: expected 10.0 got 10.2");
    EXPECT_FALSE(view);
}

TEST(RxpIstream, TypedReadOfAShortPacketReadsZerosBehindIt) {
    rxp_istream in = over(framed({{{152, 0}, {5}}, {{58, 0}, {}}}));
    std::optional<scanlib::packets::echo_gap_header> gap_view;
    in >> gap_view;
    ASSERT_TRUE(gap_view);
    EXPECT_EQ(gap_view->words()[0], 5u);
    EXPECT_EQ(gap_view->words()[1], 0u);
    std::optional<scanlib::packets::blob_uint32> blob_view;
    EXPECT_EQ(streams::failure([&] { in >> blob_view; }), "Missing data for sequence.");
}

TEST(RxpIstream, PairsAreHandedOutUntilTheStreamEnds) {
    rxp_istream in = over(framed({gap(1), shot(2)}));
    std::vector<packet_id> found;
    for (packet_id id; in >> id;) {
        found.push_back(id);
    }
    EXPECT_EQ(found, (std::vector<packet_id>{{152, 0}, {10, 0}}));
    EXPECT_TRUE(in.is_open());
}

TEST(RxpIstream, OpenedStreamHasAPreambleAndAnAttachedOneHasNone) {
    const auto file = std::filesystem::path(TEST_BINARY_DIR) / "rxp_istream_test.rxp";
    const bytes stream = framed({gap(1)}, true);
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char*>(stream.data()),
               static_cast<std::streamsize>(stream.size()));
    for (rxp_istream in :
         {rxp_istream(file), rxp_istream(file.string()), rxp_istream("file:" + file.string())}) {
        EXPECT_TRUE(in.next());
        EXPECT_EQ(in.id(), gap(1).id);
    }
    rxp_istream in = over(stream);
    EXPECT_EQ(streams::failure([&] { in.next(); }), "Start escape missing!");
    std::filesystem::remove(file);
    EXPECT_THROW(rxp_istream{file}, std::runtime_error);
}

TEST(RxpIstream, AttachReturnsTheConnectionBefore) {
    const auto first = std::make_shared<memory_rconnection>(framed({gap(1)}));
    const auto second = std::make_shared<memory_rconnection>(framed({gap(2)}));
    rxp_istream in;
    EXPECT_EQ(in.attach(first), nullptr);
    EXPECT_EQ(in.attach(second), first);
    EXPECT_TRUE(in.next());
    EXPECT_EQ(in.body()[0], 2u);
}

TEST(RxpIstream, DetachedStreamStillHasItsRawWords) {
    const packets all{gap(1), gap(2), gap(3)};
    rxp_istream in = over(framed(all));
    in.next();
    in.attach(nullptr);
    EXPECT_TRUE(in.fail());
    EXPECT_FALSE(in.is_open());
    EXPECT_EQ(in.body()[0], 1u);
    in.close();
    bytes rest(100);
    rest.resize(in.raw_read(reinterpret_cast<char*>(rest.data()), 100));
    EXPECT_EQ(rest, framed({gap(2), gap(3)}));
}

TEST(RxpIstream, CloseClosesTheConnectionOnce) {
    const auto connection = std::make_shared<closing>(framed({gap(1)}));
    rxp_istream in;
    in.attach(connection);
    in.close();
    in.close();
    EXPECT_EQ(connection->closes, 1);
    EXPECT_TRUE(in.fail());
}

TEST(RxpIstream, CopiesShareTheStream) {
    rxp_istream in = over(framed({gap(1), gap(2)}));
    rxp_istream copy = in;
    in.next();
    EXPECT_EQ(copy.body()[0], 1u);
    copy.next();
    EXPECT_EQ(in.body()[0], 2u);
}

TEST(RxpIstream, SeekToWhatTellGaveReadsTheSamePacketAgain) {
    rxp_istream in = over(framed({gap(1), gap(2), gap(3)}));
    in.next();
    const std::uint64_t second = in.tell();
    in.next();
    in.next();
    EXPECT_EQ(in.body()[0], 3u);
    rxp_istream other = over(framed({gap(1), gap(2), gap(3)}));
    other.seek(second);
    other.next();
    EXPECT_EQ(other.body()[0], 2u);
}

} // namespace
