#include "text_files.hpp"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <gtest/gtest.h>

namespace {

namespace fs = std::filesystem;

class TextFiles : public testing::Test {
  protected:
    TextFiles() {
        std::string name = testing::TempDir() + "text_filesXXXXXX";
        folder_ = mkdtemp(name.data());
    }
    ~TextFiles() override { fs::remove_all(folder_); }

    static std::string bytes_of(const fs::path& file) {
        std::ifstream in(file, std::ios::binary);
        return (std::ostringstream() << in.rdbuf()).str();
    }
    static std::size_t open_handles() {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
    }

    fs::path folder_;
};

TEST(Utf8Of, EmptyPathGivesAnEmptyText) {
    EXPECT_EQ(Riegl::utf8_of({}), "");
}

TEST(Utf8Of, WellFormedTextStaysAsItIs) {
    for (const char* text : {"a/b c.rxp", "\xC3\xA4", "\xE2\x82\xAC", "\xF0\x9F\x98\x80",
                             "\xED\x9F\xBF", "\xF4\x8F\xBF\xBF"}) {
        EXPECT_EQ(Riegl::utf8_of(text), text);
    }
}

TEST(Utf8Of, TextThatCannotBeConvertedThrows) {
    for (const char* text :
         {"a\xFF", "\x80", "\xC3", "\xC3(", "\xC0\x80", "\xE0\x80\x80", "\xE2\x82", "\xED\xA0\x80",
          "\xF0\x80\x80\x80", "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80"}) {
        EXPECT_THROW(Riegl::utf8_of(text), std::range_error) << text;
    }
}

TEST_F(TextFiles, StreamSizeIsThatOfTheFileOrMinusOne) {
    std::ofstream(folder_ / "five") << "12345";
    std::ofstream(folder_ / "none");
    EXPECT_EQ(Riegl::stream_size(folder_ / "five"), 5);
    EXPECT_EQ(Riegl::stream_size(folder_ / "none"), 0);
    EXPECT_EQ(Riegl::stream_size(folder_ / "missing"), -1);
}

TEST_F(TextFiles, StreamSizeReachesBeyond32Bits) {
    constexpr std::uintmax_t size = (std::uintmax_t{1} << 32) + 17;
    std::ofstream(folder_ / "large");
    fs::resize_file(folder_ / "large", size); // takes no space on the disk
    EXPECT_EQ(Riegl::stream_size(folder_ / "large"), size);
}

TEST_F(TextFiles, StreamSizeLeavesNoHandleOpen) {
    std::ofstream(folder_ / "five") << "12345";
    const std::size_t before = open_handles();
    for (int i = 0; i < 10; ++i) {
        Riegl::stream_size(folder_ / "five");
    }
    EXPECT_EQ(open_handles(), before);
}

TEST_F(TextFiles, LogLinesAreAppendedToWhatIsThere) {
    const fs::path log = folder_ / "log";
    std::ofstream(log) << "earlier\n";
    Riegl::append_log_line(log, "one");
    Riegl::append_log_line(log, "two\n");
    EXPECT_EQ(bytes_of(log), "earlier\none\ntwo\n\n");
}

TEST_F(TextFiles, LogThatIsNotNamedOrCannotBeWrittenIsPassedOver) {
    Riegl::append_log_line({}, "text");
    Riegl::append_log_line(folder_ / "none" / "log", "text");
    Riegl::append_log_line(folder_, "text");
    EXPECT_TRUE(fs::is_empty(folder_));
}

} // namespace
