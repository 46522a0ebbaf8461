#include <sstream>

#include <gtest/gtest.h>

#include "scanlib/packet_text.hpp"

namespace {

using scanlib::packet_id;

std::string written(packet_id id, bool numeric = false) {
    std::ostringstream out;
    if (numeric) {
        out << scanlib::numeric_packets;
    }
    out << id;
    return out.str();
}

TEST(PairText, IsNameAndNumbersOrTheNumbersAlone) {
    EXPECT_EQ(written({10, 2}), "laser_shot_2angles (10.2)");
    EXPECT_EQ(written({10, 2}, true), "10, 2");
    EXPECT_EQ(written({65535, 65535}), "void_data (65535.65535)");
    EXPECT_EQ(written({10, 3}), "unknown (10.3)");
    EXPECT_EQ(written({10, 3}, true), "10, 3");
}

TEST(PairText, IsDecimalOnAHexadecimalStream) {
    std::ostringstream out;
    out << std::hex << packet_id{26, 1} << ' ' << 26;
    EXPECT_EQ(out.str(), "inclination_4axes (26.1) 1a");
}

TEST(PairText, TheNumericFlagIsClearAtFirstAndCanBeCleared) {
    std::ostringstream out;
    EXPECT_FALSE(scanlib::has_numeric_packets(out));
    out << scanlib::numeric_packets;
    EXPECT_TRUE(scanlib::has_numeric_packets(out));
    out << scanlib::named_packets << packet_id{14, 0};
    EXPECT_EQ(out.str(), "frame_start (14.0)");
}

TEST(PairText, WritingLeavesThePairWithTheStream) {
    std::ostringstream out;
    EXPECT_EQ(scanlib::last_packet(out), packet_id{});
    out << packet_id{4000000000, 7};
    EXPECT_EQ(scanlib::last_packet(out), (packet_id{4000000000, 7}));
}

struct read_pair {
    packet_id id{1, 1};
    packet_id last;
    bool failed = false;
    bool declared_unknown = false;
};

read_pair read(const std::string& text, bool numeric = false) {
    std::istringstream in(text);
    if (numeric) {
        in >> scanlib::numeric_packets;
    }
    read_pair r;
    in >> r.id;
    r.failed = in.fail();
    r.last = scanlib::last_packet(in);
    r.declared_unknown = scanlib::last_packet_declared_unknown(in);
    return r;
}

TEST(PairText, EveryPairOfTheCatalogueReadsBackInBothForms) {
    for (std::size_t n = 1; n < scanlib::packet_index_count; ++n) {
        const auto& kind = scanlib::layout_of(static_cast<scanlib::packet_index>(n));
        const packet_id id{kind.id, kind.version};
        for (const bool numeric : {false, true}) {
            const read_pair r = read(written(id, numeric), numeric);
            EXPECT_FALSE(r.failed) << kind.name;
            EXPECT_EQ(r.id, id);
            EXPECT_EQ(r.last, id);
            EXPECT_FALSE(r.declared_unknown);
        }
    }
}

TEST(PairText, APairThatTheCatalogueDoesNotHaveIsNamedUnknown) {
    const read_pair r = read("unknown (10.3)");
    EXPECT_FALSE(r.failed);
    EXPECT_EQ(r.id, (packet_id{10, 3}));
    EXPECT_FALSE(r.declared_unknown);
    EXPECT_TRUE(read("laser_shot (10.3)").failed);
}

TEST(PairText, AKnownPairDeclaredUnknownGivesZeroAndKeepsItsNumbers) {
    const read_pair r = read("unknown (10.2)");
    EXPECT_FALSE(r.failed);
    EXPECT_EQ(r.id, packet_id{});
    EXPECT_EQ(r.last, (packet_id{10, 2}));
    EXPECT_TRUE(r.declared_unknown);
}

TEST(PairText, AKnownPairBehindADeclaredOneClearsTheMark) {
    std::istringstream in("unknown (10.2) laser_shot (10.0)");
    packet_id id;
    in >> id >> id;
    EXPECT_EQ(id, (packet_id{10, 0}));
    EXPECT_FALSE(scanlib::last_packet_declared_unknown(in));
}

TEST(PairText, BlanksBetweenThePartsAreSkipped) {
    EXPECT_EQ(read("  echo\t( 42 . 0 )").id, (packet_id{42, 0}));
    EXPECT_EQ(read(" 42 , 0", true).id, (packet_id{42, 0}));
}

TEST(PairText, BadTextFailsAndChangesNothing) {
    for (const char* text :
         {"", "laser_shot", "laser_shot (10.1)", "laser_shot 10.0", "laser_shot (10,0)",
          "laser_shot (10.0", "laser_shot (ten.0)", "nonsense (10.0)", "Laser_shot (10.0)",
          "laser_shot (-10.0)", "laser_shot (99999999999.0)"}) {
        const read_pair r = read(text);
        EXPECT_TRUE(r.failed) << text;
        EXPECT_EQ(r.id, (packet_id{1, 1})) << text;
        EXPECT_EQ(r.last, packet_id{}) << text;
    }
    for (const char* text : {"", "10", "10.0", "10,", "laser_shot (10.0)", "10, -1"}) {
        EXPECT_TRUE(read(text, true).failed) << text;
    }
}

TEST(PairText, AnEndlessNameFailsWithoutBeingKept) {
    std::istringstream in(std::string(1 << 20, 'x'));
    packet_id id;
    in >> id;
    EXPECT_TRUE(in.fail());
    in.clear();
    EXPECT_LT(in.tellg(), 1000);
}

} // namespace
