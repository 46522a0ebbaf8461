#include "input_file.hpp"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "input_registry.hpp"

namespace {

namespace fs = std::filesystem;

class InputFile : public testing::Test {
  protected:
    InputFile() {
        std::string name = testing::TempDir() + "inputXXXXXX";
        folder_ = mkdtemp(name.data());
    }
    ~InputFile() override { fs::remove_all(folder_); }

    std::string file(const std::string& name, const std::string& bytes) const {
        std::ofstream(folder_ / name, std::ios::binary) << bytes;
        return folder_ / name;
    }

    fs::path folder_;
};

/// Every `step`th word begins a packet.
std::string stream_of(std::size_t words, std::size_t step) {
    std::string bytes;
    for (std::size_t i = 0; i < words; ++i) {
        bytes +=
            i % step == 0 ? std::string("\x01\xff\xff\xff", 4) : std::string("\x05\x00\x07\xff", 4);
    }
    return bytes;
}

TEST_F(InputFile, EstimateOfPacketsCoversTheWholeSetWhereverItsFilesBegin) {
    const std::string all = stream_of(400000, 8);
    for (const std::size_t cut :
         {std::size_t{0}, std::size_t{3}, std::size_t{1001}, std::size_t{800002}}) {
        const std::string main = file("scan.rxp", all.substr(cut, 5));
        file("scan.rxo", all.substr(0, cut));
        file("scan.rxp_001", all.substr(cut + 5, 400001));
        file("scan.rxp_002", all.substr(std::min(all.size(), cut + 5 + 400001)));
        EXPECT_NEAR(static_cast<double>(host::estimate_packets(main)), 50000.0, 500.0) << cut;
    }
}

TEST_F(InputFile, EstimateOfNothingIsNone) {
    EXPECT_EQ(host::estimate_packets(file("scan.rxp", "")), 0u);
    EXPECT_EQ(host::estimate_packets(folder_ / "missing.rxp"), 0u);
    EXPECT_EQ(host::estimate_packets("rdtp://127.0.0.1/scan"), 0u);
    const std::string main = file("scan.rxp", "");
    file("scan.rxp_001", stream_of(4000, 4));
    EXPECT_NEAR(static_cast<double>(host::estimate_packets(main)), 1000.0, 10.0);
}

TEST_F(InputFile, RegistryKnowsEveryFileOfARecordingUnderAnyName) {
    const std::string main = file("scan.rxp", "x");
    host::input_registry registry;
    for (const char* name : {"common.rxo", "scan.rxo", "scan.rxp_001", "scan.pxp",
                             "scan.override.pxp", "scan.rxp_003", "other.rxp"}) {
        file(name, "x");
    }
    registry.add(main);
    registry.add("rdtp://127.0.0.1/scan");
    registry.add(folder_ / "missing.rxp");
    for (const char* name :
         {"common.rxo", "scan.rxo", "scan.rxp_001", "scan.pxp", "scan.override.pxp", "scan.rxp"}) {
        fs::create_hard_link(folder_ / name, folder_ / "link");
        const auto* found = registry.find(folder_ / "link");
        ASSERT_NE(found, nullptr) << name;
        EXPECT_EQ(found->input, main);
        EXPECT_EQ(found->file, folder_ / name);
        fs::remove(folder_ / "link");
    }
    EXPECT_EQ(registry.find(folder_ / "scan.rxp_003"), nullptr) << "the numbers have a gap";
    EXPECT_EQ(registry.find(folder_ / "other.rxp"), nullptr);
    EXPECT_EQ(registry.find(folder_ / "missing.rxp"), nullptr);
}

} // namespace
