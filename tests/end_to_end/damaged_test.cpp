// Recordings with flipped bits and overwritten words, converted in this process through the shared
// library: whatever the damage does to the stream, a conversion returns, and its file is there.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "bundle_interface/holdfast.hpp"
#include "frontend/conversion.hpp"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t preamble_bytes = 16;

std::string bytes_of(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

class listener : public Riegl::ProgressMonitor {
  public:
    void report(const std::string&, int, int) override {}
    void summarise(const Riegl::ConversionSummary& s) override {
        ++calls;
        summary = s;
    }
    int calls = 0;
    Riegl::ConversionSummary summary;
};

class Damaged : public testing::TestWithParam<const char*> {
  protected:
    Damaged()
        : folder_(fs::temp_directory_path() /
                  ("damaged_" + std::to_string(getpid()) + "_" + GetParam())) {
        fs::create_directories(folder_);
        // The messages of thousands of damaged conversions are of no interest here.
        Holdfast::Console::setSink([](const std::string&) {});
        whole_ = bytes_of(fs::path(TEST_DATA_DIR "/recordings") / GetParam() /
                          "200101_120000_Scanner_1.rxp");
    }
    ~Damaged() override {
        Holdfast::Console::setSink({});
        fs::remove_all(folder_);
    }

    Riegl::ConversionSummary convert(const std::string& bytes) {
        const fs::path file = folder_ / "damaged.rxp";
        std::ofstream(file, std::ios::binary) << bytes;
        Riegl::Input input;
        auto* monitor = new listener;
        input.Progress = Holdfast::StrongPtr<Riegl::ProgressMonitor>(monitor);
        input.FragSize = 150;
        input.OutDir = folder_;
        const std::string text = Riegl::rxpToSkeinK7(file, input);
        EXPECT_EQ(monitor->calls, 1);
        EXPECT_FALSE(monitor->summary.store_failed);
        EXPECT_TRUE(fs::exists(folder_ / "damaged.k7"));
        EXPECT_LE(monitor->summary.offset, bytes.size());
        if (monitor->summary.interrupted) {
            // The one text that may come in place of the interruption's is that of missing
            // attributes.
            EXPECT_TRUE(input.Errors.find("Export interrupted") != std::string::npos ||
                        !text.empty());
        }
        return monitor->summary;
    }

    fs::path folder_;
    std::string whole_;
};

TEST_P(Damaged, FlippedBitsNeverEndTheProcessAndMostRowsSurvive) {
    const std::uint64_t undamaged = convert(whole_).shots;
    ASSERT_GT(undamaged, 100u);
    std::mt19937 random(7);
    std::uint64_t kept = 0;
    constexpr int rounds = 1000;
    for (int i = 0; i < rounds; ++i) {
        std::string bytes = whole_;
        const std::size_t at = preamble_bytes + random() % (bytes.size() - preamble_bytes);
        bytes[at] = static_cast<char>(bytes[at] ^ static_cast<char>(1u << random() % 8));
        kept += convert(bytes).shots;
    }
    // A flip costs its packet, or the rest where it ends the stream or hits the header's
    // parameters.
    EXPECT_GT(kept, undamaged * rounds / 2);
}

TEST_P(Damaged, OverwrittenWordsNeverEndTheProcess) {
    std::mt19937 random(8);
    const std::uint32_t nasty[] = {0,          1,          0x7FFFFFFF, 0x80000000,
                                   0xFFFFFF00, 0xFFFFFF01, 0xFFFFFFFE, 0xFFFFFFFF,
                                   0x7FC00000, 0x7F800000, 0xFF800000, 0x00000001};
    for (int i = 0; i < 300; ++i) {
        std::string bytes = whole_;
        for (int n = 0; n < 4; ++n) {
            const std::size_t at = preamble_bytes + random() % (bytes.size() / 4 - 4) * 4;
            const std::uint32_t word = nasty[random() % std::size(nasty)];
            bytes.replace(at, 4, reinterpret_cast<const char*>(&word), 4);
        }
        convert(bytes);
    }
}

INSTANTIATE_TEST_SUITE_P(Recordings, Damaged, testing::Values("plain-32", "plain-hr"),
                         [](const auto& p) {
                             return std::string(p.param == std::string("plain-32") ? "plain"
                                                                                   : "hr");
                         });

} // namespace
