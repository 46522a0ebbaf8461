// The last fragment, written once or twice, and packets that break half-way.
#include "waveform_stream.hpp"

#include <gmock/gmock.h>

#include <memory>
#include <stdexcept>

#include "wfm.hpp"

namespace {

using frontend_test::BundleReader;
using frontend_test::Samples;
using frontend_test::WaveformStream;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

/// Fails behind its own work on a block, as a broken packet would.
class FailingWfm : public Riegl::WFM {
  public:
    using WFM::WFM;
    bool fails = false;

    const scanlib::wave_channel& channel(std::size_t i) const { return channels.at(i); }

  protected:
    void on_wave(scanlib::wave_block& block) override {
        WFM::on_wave(block);
        if (fails) {
            throw std::runtime_error("broken packet");
        }
    }
};

class FinalWrite : public frontend_test::ConversionTest {
  protected:
    /// Hands packets to an extractor as the pass does; a broken one loses its rows.
    static void deliver(FailingWfm& wfm, const WaveformStream& stream) {
        auto decoder = streams::decoder(stream.bytes(), true);
        for (const streams::words& packet : streams::decode_all(decoder)) {
            const Riegl::WFM::Rows rows = wfm.staged();
            try {
                wfm.dispatch(packet.data(), packet.data() + packet.size());
            } catch (const std::runtime_error&) {
                wfm.unstage(rows);
            }
        }
    }
    FailingWfm& make() {
        wfm_ = std::make_unique<FailingWfm>(input_, stream_, true, result_);
        wfm_->writer().prepare_fragment(input_.FragSize, input_.Exported_FWF_LENGTH);
        return *wfm_;
    }
    void finish() {
        wfm_->finish();
        wfm_.reset();
    }

    Riegl::ConversionSummary result_;
    std::unique_ptr<FailingWfm> wfm_;
};

TEST_F(FinalWrite, TwiceStoresTheRowsUnderTheNextNumberToo) {
    FailingWfm& wfm = make();
    WaveformStream stream;
    stream.begin().waveform(0, 5).echo(1000);
    stream.waveform(1, 3).end();
    deliver(wfm, stream);
    EXPECT_EQ(wfm.shall_we_write(true), no_table);
    EXPECT_EQ(wfm.shall_we_write(true), no_table);
    finish();
    const BundleReader k7(k7_);
    for (const char* column : {"GPSTime", "FWFLength", "Waveforms"}) {
        const auto first = k7.read("Waveforms", column, 0);
        const auto second = k7.read("Waveforms", column, 1);
        ASSERT_TRUE(first.there && second.there) << column;
        EXPECT_EQ(first.shape, second.shape);
        EXPECT_EQ(first.values, second.values);
    }
    EXPECT_THAT(k7.read("Waveforms", "Waveforms", 1).shape, ElementsAre(2, 5));
    EXPECT_EQ(k7.read("Shots", "GPSTime", 0).values, k7.read("Shots", "GPSTime", 1).values);
    EXPECT_EQ(k7.read("OPP", "Range", 0).values, k7.read("OPP", "Range", 1).values);
}

TEST_F(FinalWrite, TakesANumberEvenWhenNothingIsStaged) {
    FailingWfm& wfm = make();
    WaveformStream stream;
    stream.begin();
    deliver(wfm, stream);
    EXPECT_EQ(wfm.shall_we_write(true), no_table);
    WaveformStream later;
    later.waveform(0, 5).end();
    deliver(wfm, later);
    EXPECT_EQ(wfm.shall_we_write(true), no_table);
    finish();
    EXPECT_THAT(BundleReader(k7_).fragments("Waveforms", "GPSTime", 5), ElementsAre(1));
}

TEST_F(FinalWrite, PacketThatBreaksHalfWayGivesNoRowsAndNoWidth) {
    FailingWfm& wfm = make();
    WaveformStream good;
    good.begin().waveform(0, 3).waveform(1, 40);
    deliver(wfm, good);
    EXPECT_EQ(wfm.staged().waveforms, 1U);
    EXPECT_EQ(wfm.staged().shots, 2U);
    wfm.fails = true;
    WaveformStream broken;
    broken.shot_hr(2); // ends the shot of the 40 samples
    deliver(wfm, broken);
    EXPECT_EQ(wfm.staged().waveforms, 1U);
    EXPECT_EQ(wfm.staged().shots, 2U);
    EXPECT_EQ(wfm.writer().longest_waveform(), 3U);
    EXPECT_EQ(wfm.shall_we_write(true), no_table);
    finish();
    const BundleReader k7(k7_);
    EXPECT_THAT(k7.read("Waveforms", "Waveforms", 0).shape, ElementsAre(1, 3));
    EXPECT_THAT(k7.read("Waveforms", "Waveforms", 0).values, ElementsAre(100, 101, 102));
    EXPECT_THAT(k7.read("Shots", "GPSTime", 0).values, SizeIs(2));
}

TEST_F(FinalWrite, RowsOfABrokenPacketAreOverwrittenByWhatFollows) {
    FailingWfm& wfm = make();
    WaveformStream stream;
    stream.begin().waveform(0, 40).end();
    wfm.fails = true;
    deliver(wfm, stream);
    EXPECT_EQ(wfm.staged().waveforms, 0U);
    wfm.fails = false;
    WaveformStream later;
    later.waveform(5, 2).end();
    deliver(wfm, later);
    EXPECT_EQ(wfm.shall_we_write(true), no_table);
    finish();
    EXPECT_THAT(BundleReader(k7_).read("Waveforms", "Waveforms", 0).values, ElementsAre(100, 101));
}

TEST_F(FinalWrite, PulseModelGoesIntoTheChannelWithoutItsTerms) {
    FailingWfm& wfm = make();
    WaveformStream stream;
    stream.begin().pulse_model(1, {{1, 2, 3, 4}}).pulse_model(0, {{1, 2, 3, 4}});
    testing::internal::CaptureStdout();
    deliver(wfm, stream);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(wfm.channel(1).delay, 0.5);
    EXPECT_EQ(wfm.channel(1).scale, 0.25);
    EXPECT_EQ(wfm.channel(1).a_lin, 0.75);
    EXPECT_THAT(wfm.channel(1).expsum_ab, IsEmpty());
    EXPECT_THAT(wfm.channel(1).expsum_gw, IsEmpty());
    EXPECT_EQ(wfm.channel(0).delay, 0);
    EXPECT_EQ(wfm.channel(0).a_lin, 0.4);
    finish();
}

} // namespace
