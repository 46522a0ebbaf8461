#include "resume_note.hpp"

#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using host::continuation_tracker;

TEST(ContinuationTracker, FollowsTheConnectionWhereAllIsDelivered) {
    continuation_tracker t("");
    EXPECT_FALSE(t.usable());
    t.delivered(":5", 5);
    EXPECT_FALSE(t.usable()) << "an offset alone is no place";
    t.delivered("T:3", 3);
    EXPECT_TRUE(t.usable());
    EXPECT_EQ(t.text(), "T:3");
    t.delivered("T:7", 4);
    EXPECT_EQ(t.text(), "T:7");
    t.delivered("U:2", 2);
    EXPECT_EQ(t.text(), "U:2");
    t.delivered("U:2", 0);
    EXPECT_EQ(t.text(), "U:2");
}

TEST(ContinuationTracker, GoesOnFromWhereAnEarlierRunWas) {
    continuation_tracker t("T:1000");
    t.delivered("T:1010", 10);
    EXPECT_EQ(t.text(), "T:1010");
}

TEST(ContinuationTracker, LeavesOutWhatAStopHasCutOff) {
    continuation_tracker same("T:1000");
    same.delivered("T:1100", 40);
    same.delivered("T:1100", 0);
    EXPECT_EQ(same.text(), "T:1040");
    continuation_tracker fresh("T:1000");
    fresh.delivered("U:100", 40);
    fresh.delivered("U:100", 0);
    EXPECT_EQ(fresh.text(), "U:40");
    continuation_tracker none("T:1000");
    none.delivered("T:1100", 0);
    EXPECT_EQ(none.text(), "T:1000") << "the cut lay before the block";
}

TEST(ContinuationTracker, TakesATokenThatIsIssuedAgain) {
    continuation_tracker t("T:1000");
    t.delivered("T:20", 20);
    EXPECT_EQ(t.text(), "T:20");
}

class ResumeNote : public testing::Test {
  protected:
    ~ResumeNote() override { std::filesystem::remove(path_); }
    void put(const std::string& text) const {
        std::ofstream(path_, std::ios::binary | std::ios::trunc) << text;
    }
    std::string path_ =
        std::filesystem::path(TEST_BINARY_DIR) / ("note_" + std::to_string(::getpid()) + ".resume");
};

TEST_F(ResumeNote, ComesBackAsItWasWritten) {
    EXPECT_EQ(host::note_path("a/b.rxp"), "a/b.rxp.resume");
    host::write_note(path_, {123, "token:45"});
    host::write_note(path_, {124, "token:46"});
    const auto note = host::read_note(path_);
    ASSERT_TRUE(note);
    EXPECT_EQ(note->bytes, 124u);
    EXPECT_EQ(note->continuation, "token:46");
    EXPECT_FALSE(std::filesystem::exists(path_ + ".new"));
}

TEST_F(ResumeNote, MissingOrDamagedOneIsNone) {
    EXPECT_FALSE(host::read_note(path_));
    for (const char* const text :
         {"", "another file\n1\nT:1\n", "rxp2k7 record 1\n", "rxp2k7 record 1\nx\nT:1\n",
          "rxp2k7 record 1\n1x\nT:1\n", "rxp2k7 record 1\n-1\nT:1\n", "rxp2k7 record 1\n7\n"}) {
        put(text);
        EXPECT_FALSE(host::read_note(path_)) << text;
    }
}

TEST_F(ResumeNote, OneThatCannotBeWrittenIsTold) {
    EXPECT_THROW(host::write_note("/no/such/folder/x.resume", {1, "T:1"}), std::system_error);
}

} // namespace
