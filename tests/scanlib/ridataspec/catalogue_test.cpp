#include "scanlib/packet_catalogue.hpp"

#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <vector>

#include <gtest/gtest.h>

namespace {

using scanlib::index_of;
using scanlib::mask_of;
using scanlib::packet_index;
using scanlib::packet_index_count;

std::ifstream data(const std::string& name) {
    std::ifstream in(std::string(TEST_DATA_DIR "/catalogue/") + name);
    EXPECT_TRUE(in.is_open()) << name;
    return in;
}

TEST(Catalogue, RowsStandInNameOrderWithTheirPairs) {
    std::ifstream in = data("rows.txt");
    std::string line;
    std::size_t n = 0;
    while (std::getline(in, line)) {
        ++n;
        const auto& row = scanlib::layout_of(static_cast<packet_index>(n));
        std::ostringstream text;
        text << row.name << ' ' << row.id << '.' << row.version;
        EXPECT_EQ(text.str(), line);
        EXPECT_EQ(index_of({row.id, row.version}), static_cast<packet_index>(n));
        EXPECT_EQ(scanlib::name_of({row.id, row.version}), row.name);
        EXPECT_EQ(scanlib::id_of(row.name), (scanlib::packet_id{row.id, row.version}));
        if (n > 1) {
            EXPECT_LT(scanlib::layout_of(static_cast<packet_index>(n - 1)).name, row.name);
        }
    }
    EXPECT_EQ(n, 294u);
    EXPECT_EQ(packet_index_count, 295u);
    EXPECT_EQ(static_cast<int>(packet_index::void_data), 291);
}

TEST(Catalogue, RowZeroIsUnknown) {
    EXPECT_EQ(scanlib::layout_of(packet_index::unknown).name, "unknown");
    EXPECT_EQ(scanlib::name_of({0, 0}), "unknown");
    EXPECT_EQ(scanlib::id_of("unknown"), (scanlib::packet_id{0, 0}));
    EXPECT_EQ(scanlib::id_of("no_such_kind"), std::nullopt);
}

TEST(Catalogue, VersionAboveTheNewestIsUnknown) {
    EXPECT_EQ(index_of({10, 3}), packet_index::unknown);
    EXPECT_EQ(index_of({10, 2}), packet_index::laser_shot_2angles);
}

TEST(Catalogue, MagicVersionsAreExact) {
    EXPECT_EQ(index_of({65535, 65535}), packet_index::void_data);
    EXPECT_EQ(index_of({65535, 0}), packet_index::unknown);
    EXPECT_EQ(index_of({65226, 60926}), packet_index::datagram_separator);
    EXPECT_EQ(index_of({65226, 0}), packet_index::unknown);
}

TEST(Catalogue, IdZeroIsUnknownInEveryVersion) {
    for (std::uint32_t v : {0u, 1u, 7u, 65535u, 70000u}) {
        EXPECT_EQ(index_of({0, v}), packet_index::unknown);
    }
}

TEST(Catalogue, IdsInGapsAreUnknown) {
    for (std::uint32_t id : {9u, 116u, 175u, 50009u, 65536u, 0xFFFFFFFFu}) {
        EXPECT_EQ(index_of({id, 0}), packet_index::unknown) << id;
    }
}

TEST(Catalogue, OnlyTheTableDecidesNotTheLookOfAName) {
    EXPECT_EQ(scanlib::name_of({10003, 0}), "hk_pwr");
    EXPECT_EQ(scanlib::name_of({10003, 1}), "hk_bat");
    EXPECT_EQ(scanlib::name_of({10007, 0}), "hk_pwr_1");
    EXPECT_EQ(scanlib::name_of({122, 0}), "counter_sync_2angles_hr");
    EXPECT_EQ(scanlib::name_of({13, 0}), "counter_sync");
}

TEST(Catalogue, EveryPairOfSixteenBitNumbersMapsToItsRowOrToUnknown) {
    std::size_t known = 0;
    for (std::uint32_t id = 0; id < 65536; ++id) {
        for (std::uint32_t v = 0; v < 12; ++v) {
            const packet_index n = index_of({id, v});
            if (n != packet_index::unknown) {
                ++known;
                EXPECT_EQ(scanlib::layout_of(n).id, id);
                EXPECT_EQ(scanlib::layout_of(n).version, v);
            }
        }
    }
    EXPECT_EQ(known, 292u); // all but the two with magic versions
}

TEST(Catalogue, TagsHaveTheirMembersAndNoOthers) {
    std::ifstream in = data("tags.txt");
    std::string line;
    std::size_t tags = 0;
    std::set<std::string> tagged;
    while (std::getline(in, line)) {
        std::istringstream words(line);
        std::string tag;
        std::string name;
        words >> tag;
        ++tags;
        std::set<std::string> expected;
        while (words >> name) {
            expected.insert(name);
        }
        std::set<std::string> found;
        const auto& mask = mask_of(tag);
        for (std::size_t n = 0; n < packet_index_count; ++n) {
            if (mask.test(n)) {
                found.insert(std::string(scanlib::layout_of(static_cast<packet_index>(n)).name));
            }
        }
        EXPECT_EQ(found, expected) << tag;
        EXPECT_EQ(mask.count(), expected.size()) << tag;
        tagged.insert(found.begin(), found.end());
    }
    EXPECT_EQ(tags, 17u);
    EXPECT_EQ(tagged.size(), 294u) << "each kind bears a tag besides all";
}

TEST(Catalogue, CountsOfEveryTag) {
    const std::pair<const char*, std::size_t> counts[] = {
        {"all", 295},     {"protocol", 22},  {"attribute", 123}, {"instrument", 75},
        {"data", 76},     {"scan", 119},     {"dmi", 2},         {"debug", 16},
        {"wave", 19},     {"startcond", 27}, {"deprecated", 7},  {"lidar", 37},
        {"internal", 28}, {"status", 50},    {"ttip", 4},        {"packed", 17},
        {"notify", 4},    {"legacy", 2},     {"none", 0}};
    for (const auto& [tag, count] : counts) {
        EXPECT_EQ(mask_of(tag).count(), count) << tag;
    }
}

TEST(Catalogue, MisspeltTagSelectsNothingAndAllAdmitsUnknown) {
    EXPECT_EQ(mask_of("ALL").count(), 0u);
    EXPECT_EQ(mask_of("Scan").count(), 0u);
    EXPECT_EQ(mask_of("").count(), 0u);
    EXPECT_TRUE(mask_of("all").test(packet_index::unknown));
    EXPECT_FALSE(mask_of("scan").test(packet_index::unknown));
}

TEST(Catalogue, RevisionText) {
    EXPECT_STREQ(scanlib::catalogue_version, "2.99996.9999");
}

TEST(Catalogue, HandlersStandInTheirTwoRuns) {
    std::ifstream in = data("handlers.txt");
    std::ifstream slots(GENERATED_DIR "/handler_slots.hpp");
    std::vector<std::string> expected;
    for (std::string line; std::getline(in, line);) {
        expected.push_back(line);
    }
    std::vector<std::string> found;
    const std::regex slot(R"(virtual void (on_\w+)\(.*)");
    for (std::string line; std::getline(slots, line);) {
        std::smatch m;
        if (std::regex_match(line, m, slot)) {
            found.push_back(m[1]);
        }
    }
    EXPECT_EQ(found, expected);
}

} // namespace
