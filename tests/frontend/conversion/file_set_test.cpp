#include "conversion_fixture.hpp"

#include <algorithm>

#include <gmock/gmock.h>
#include <unistd.h>

#include "frontend/inspection.hpp"

namespace {

using frontend_test::whole_stream;
using testing::ElementsAre;
using testing::IsEmpty;

/// A recording of four equal parts on disk; the last may be a few bytes shorter.
class FileSetConversion : public frontend_test::ConversionTest {
  protected:
    FileSetConversion() {
        const auto bytes = whole_stream(20).bytes();
        const std::string all(bytes.begin(), bytes.end());
        const std::size_t part = (all.size() + 3) / 4;
        for (std::size_t i = 0; i < names_.size(); ++i) {
            write(names_[i], all.substr(i * part, part));
        }
        write(folder_ / "whole.rxp", all);
        part_ = part;
    }

    static void write(const std::filesystem::path& file, const std::string& bytes) {
        std::ofstream(file, std::ios::binary) << bytes;
    }

    /// Converts the set; `then` comes between the opening of the connection and its first read.
    std::string convert_set(const std::function<void()>& then) {
        return Riegl::convert_stream(names_[0], input_, [&](const std::string& uri) {
            auto* const connection = scanlib::basic_rconnection::create(uri, "", "");
            then();
            return connection;
        });
    }

    std::vector<std::filesystem::path> names_ = {folder_ / "scan.rxp", folder_ / "scan.rxp_001",
                                                 folder_ / "scan.rxp_002",
                                                 folder_ / "scan.rxp_003"};
    std::size_t part_ = 0;
};

TEST_F(FileSetConversion, OfSplitRecordingIsThatOfTheWholeOneToTheByte) {
    EXPECT_EQ(Riegl::rxpToSkeinK7(names_[0], input_), "");
    EXPECT_EQ(summary().recording.data, names_);
    EXPECT_THAT(summary().recording.unread, IsEmpty());
    EXPECT_EQ(loss_count("unread files"), 0u);
    EXPECT_EQ(Riegl::rxpToSkeinK7(folder_ / "whole.rxp", input_), "");
    EXPECT_EQ(bytes_of(folder_ / "scan.k7"), bytes_of(folder_ / "whole.k7"));
}

TEST_F(FileSetConversion, TellsPrefixesAndOverrideFile) {
    std::filesystem::rename(names_[0], folder_ / "common.rxo");
    std::filesystem::rename(names_[1], folder_ / "scan.rxo");
    std::filesystem::rename(names_[2], names_[0]);
    std::filesystem::rename(names_[3], names_[1]);
    write(folder_ / "scan.override.pxp", "");
    EXPECT_EQ(Riegl::rxpToSkeinK7(names_[0], input_), "");
    EXPECT_THAT(summary().recording.prefixes,
                ElementsAre(folder_ / "common.rxo", folder_ / "scan.rxo"));
    EXPECT_THAT(summary().recording.data, ElementsAre(names_[0], names_[1]));
    EXPECT_EQ(summary().recording.override_file, folder_ / "scan.override.pxp");
    EXPECT_EQ(summary().bytes_in, std::filesystem::file_size(folder_ / "whole.rxp"));
}

TEST_F(FileSetConversion, ContinuationThatVanishesKeepsWhatCameBeforeAndIsCounted) {
    EXPECT_EQ(convert_set([&] { std::filesystem::remove(names_[2]); }), "");
    EXPECT_FALSE(summary().interrupted);
    EXPECT_THAT(summary().recording.data, ElementsAre(names_[0], names_[1]));
    EXPECT_THAT(summary().recording.unread, ElementsAre(names_[2], names_[3]));
    EXPECT_EQ(loss_count("unread files"), 2u);
    const auto& losses = summary().losses;
    const auto loss = std::find_if(losses.begin(), losses.end(),
                                   [](const Riegl::Loss& l) { return l.name == "unread files"; });
    ASSERT_NE(loss, losses.end());
    EXPECT_EQ(loss->first_offset, 2 * part_);
    EXPECT_GT(summary().shots, 0u);
    EXPECT_LT(summary().shots, 20u);
}

TEST_F(FileSetConversion, SideFileThatCannotBeReadIsCountedAtTheStart) {
    write(folder_ / "scan.pxp", "{}");
    std::filesystem::permissions(folder_ / "scan.pxp", std::filesystem::perms::none);
    std::filesystem::permissions(folder_, std::filesystem::perms::all);
    const auto user = geteuid();
    ASSERT_TRUE(user != 0 || seteuid(65534) == 0);
    const std::string text = Riegl::rxpToSkeinK7(names_[0], input_);
    ASSERT_EQ(seteuid(user), 0);
    EXPECT_EQ(text, "");
    EXPECT_THAT(summary().recording.unread, ElementsAre(folder_ / "scan.pxp"));
    EXPECT_EQ(summary().shots, 20u);
    EXPECT_EQ(loss_count("unread files"), 1u);
    for (const Riegl::Loss& l : summary().losses) {
        EXPECT_TRUE(l.name != "unread files" || l.first_offset == 0);
    }
}

TEST_F(FileSetConversion, FilesOfAnInterruptedStreamAreToldToo) {
    std::filesystem::remove(names_[2]);
    std::filesystem::create_symlink("/proc/self/mem", names_[2]); // opens, but cannot be read
    EXPECT_EQ(Riegl::rxpToSkeinK7(names_[0], input_), "");
    EXPECT_TRUE(summary().interrupted);
    EXPECT_EQ(summary().cause, "file_rconnection::more_input: Error reading from file!");
    EXPECT_EQ(summary().recording.data, names_);
}

TEST_F(FileSetConversion, StreamThatIsNoFileHasNoFiles) {
    EXPECT_EQ(convert(whole_stream(1)), "");
    EXPECT_THAT(summary().recording.data, IsEmpty());
    EXPECT_EQ(summary().recording.override_file, "");
}

TEST_F(FileSetConversion, InspectionTellsItsFiles) {
    struct Monitor : frontend_test::RecordingMonitor {
        void inspected(const Riegl::InspectionSummary& s) override { seen = s; }
        Riegl::InspectionSummary seen;
    };
    auto* const monitor = new Monitor;
    input_.Progress = Holdfast::StrongPtr<Riegl::ProgressMonitor>(monitor);
    EXPECT_EQ(Riegl::inspectFWFs(names_[0], input_), "");
    EXPECT_EQ(monitor->seen.recording.data, names_);
    EXPECT_EQ(monitor->seen.bytes_in, std::filesystem::file_size(folder_ / "whole.rxp"));
}

} // namespace
