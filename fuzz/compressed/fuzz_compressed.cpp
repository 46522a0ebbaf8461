#include "scanlib/compressed_packets.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <iterator>
#include <vector>

// Input: a byte whose lowest bit skips sample blocks, then packets of one byte that chooses a
// packed kind, one byte with the number of payload words, and the payload. So a mutation hits
// fields and tags rather than framing.

namespace {

/// As second words of long heads.
constexpr std::uint32_t kinds[] = {
    45U << 16, 46U << 16, 47U << 16, 48U << 16, 51U << 16, 52U << 16, 63U << 16,  63U << 16 | 1,
    64U << 16, 65U << 16, 66U << 16, 92U << 16, 93U << 16, 86U << 16, 109U << 16, 108U << 16,
};

/// Reads every word that it is given.
class curious_reader : public scanlib::compressed_packets {
  public:
    using scanlib::compressed_packets::compressed_packets;
    std::uint32_t sum = 0;

    void on_laser_shot_2angles(scanlib::packets::laser_shot_2angles& p) override { take(p); }
    void on_laser_shot_1angle(scanlib::packets::laser_shot_1angle& p) override { take(p); }
    void on_laser_shot(scanlib::packets::laser_shot& p) override { take(p); }
    void on_laser_shot_2angles_rad(scanlib::packets::laser_shot_2angles_rad& p) override {
        take(p);
    }
    void on_laser_shot_2angles_hr(scanlib::packets::laser_shot_2angles_hr& p) override { take(p); }
    void on_echo(scanlib::packets::echo& p) override { take(p); }
    void on_sbl_dg_channel_header_1(scanlib::packets::sbl_dg_channel_header_1& p,
                                    const std::uint32_t* /*end*/) override {
        take(p);
        sum += p.size();
    }
    void on_sbl_dg_channel_data_compressed(scanlib::packets::sbl_dg_channel_data_compressed& p,
                                           const std::uint32_t* /*end*/) override {
        take(p);
        sum += p.size();
    }

  private:
    template<class View>
    void take(const View& p) {
        for (const std::uint32_t* w = p.words(); w != p.end_of_words(); ++w) {
            sum += *w;
        }
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    scanlib::loss_log losses;
    curious_reader reader((data[0] & 1) != 0);
    reader.set_loss_log(&losses);
    std::size_t at = 1;
    while (at + 2 <= size) {
        std::vector<std::uint32_t> words{0xFFFFFFFF, kinds[data[at] % std::size(kinds)]};
        const std::size_t wanted = std::size_t{data[at + 1]} * 4;
        at += 2;
        const std::size_t there = wanted < size - at ? wanted : size - at;
        words.resize(2 + (there + 3) / 4);
        if (there != 0) {
            std::memcpy(words.data() + 2, data + at, there);
        }
        at += there;
        // Of the exact size, so that a read past the end is one past a heap block.
        const std::vector<std::uint32_t> exact(words);
        try {
            reader.dispatch(exact.data(), exact.data() + exact.size());
        } catch (const std::exception&) {
            continue; // a packet that is refused leaves the object usable
        }
    }
    return 0;
}
