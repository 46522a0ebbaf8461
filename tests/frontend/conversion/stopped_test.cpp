#include "conversion_fixture.hpp"

#include <gmock/gmock.h>

namespace {

using frontend_test::BundleReader;
using frontend_test::Report;
using frontend_test::whole_stream;
using testing::HasSubstr;

/// A recording on disk that is stopped from within one of its reports.
class StoppedConversion : public frontend_test::ConversionTest {
  protected:
    static constexpr std::uint32_t shots = 4000; ///< all of which may be read ahead

    StoppedConversion() {
        const auto bytes = whole_stream(shots).bytes();
        std::ofstream(file_, std::ios::binary) << std::string(bytes.begin(), bytes.end());
        input_.FragSize = 1000;
        end_at(200, &Riegl::StreamControl::stop);
    }

    void end_at(int packet, void (Riegl::StreamControl::*how)()) {
        monitor_->when_reported = [this, packet, how] {
            if (monitor_->reports.back().current >= packet) {
                ((*monitor_->stream).*how)();
            }
        };
    }
    std::vector<double> times_of(const std::filesystem::path& path) const {
        std::vector<double> all;
        const BundleReader k7(path);
        for (unsigned i = 0; k7.read("Shots", "GPSTime", i).there; ++i) {
            const auto values = k7.read("Shots", "GPSTime", i).values;
            all.insert(all.end(), values.begin(), values.end());
        }
        return all;
    }

    std::filesystem::path file_ = folder_ / "190209_124210_scan.rxp";
    std::filesystem::path part_ = folder_ / "190209_124210_scan.k7.part";
};

TEST_F(StoppedConversion, LeavesAPartWithEveryRowBeforeThePacketAtHand) {
    EXPECT_EQ(Riegl::rxpToSkeinK7(file_, input_), "");
    EXPECT_TRUE(summary().stopped);
    EXPECT_TRUE(summary().interrupted);
    EXPECT_FALSE(summary().store_failed);
    EXPECT_THAT(summary().cause, HasSubstr("Operation canceled"));
    EXPECT_LT(summary().offset, std::filesystem::file_size(file_));
    EXPECT_FALSE(std::filesystem::exists(k7_));
    EXPECT_EQ(summary().bytes_out, std::filesystem::file_size(part_));
    const auto part = times_of(part_);
    EXPECT_EQ(part.size(), summary().shots);

    monitor_->when_reported = {};
    EXPECT_EQ(Riegl::rxpToSkeinK7(file_, input_), "");
    auto whole = times_of(k7_);
    ASSERT_LT(part.size(), whole.size());
    whole.resize(part.size());
    EXPECT_EQ(part, whole);
    EXPECT_FALSE(std::filesystem::exists(part_));
}

TEST_F(StoppedConversion, EndsTheSameWayWhenItIsCancelled) {
    end_at(200, &Riegl::StreamControl::cancel);
    EXPECT_EQ(Riegl::rxpToSkeinK7(file_, input_), "");
    EXPECT_TRUE(summary().stopped);
    EXPECT_FALSE(times_of(part_).empty());
}

TEST_F(StoppedConversion, KeepsTheFileOfAnEarlierRun) {
    make_earlier_file();
    EXPECT_EQ(Riegl::rxpToSkeinK7(file_, input_), "");
    EXPECT_EQ(bytes_of(k7_), "earlier");
    EXPECT_TRUE(std::filesystem::exists(part_));
}

TEST_F(StoppedConversion, LeavesNothingWhereNothingWasStored) {
    const std::string text = Riegl::convert_stream(file_, input_, [&](const std::string& uri) {
        auto* const connection = scanlib::basic_rconnection::create(uri, "", "");
        connection->stop();
        return connection;
    });
    EXPECT_FALSE(summary().stopped) << "only the host's own wish counts";
    EXPECT_TRUE(std::filesystem::exists(k7_)) << text;

    std::filesystem::remove(k7_);
    monitor_->when_connecting = [this] { monitor_->stream->stop(); };
    EXPECT_EQ(Riegl::rxpToSkeinK7(file_, input_), no_table);
    EXPECT_TRUE(summary().stopped);
    EXPECT_EQ(summary().bytes_out, 0u);
    EXPECT_FALSE(std::filesystem::exists(k7_));
    EXPECT_FALSE(std::filesystem::exists(part_));
}

TEST_F(StoppedConversion, IsWholeWhereTheEndCameFirst) {
    monitor_->when_reported = [this] {
        if (monitor_->reports.back() == Report{"RXP-Writing# ", 1, 1}) {
            monitor_->stream->stop();
        }
    };
    EXPECT_EQ(Riegl::rxpToSkeinK7(file_, input_), "");
    EXPECT_FALSE(summary().stopped);
    EXPECT_EQ(times_of(k7_).size(), shots);
}

} // namespace
