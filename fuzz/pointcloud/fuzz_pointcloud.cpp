#include "scanlib/pointcloud.hpp"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <iterator>
#include <sstream>
#include <vector>

// Input: a byte whose lowest bit selects PPS times, then packets of one byte that chooses a kind,
// one byte with the number of payload words, and the payload. So a mutation hits fields rather than
// framing.

namespace {

/// The kinds that the point cloud listens to, as second words of long heads.
constexpr std::uint32_t kinds[] = {
    1U << 16,      111U << 16, 2U << 16 | 4,  2U << 16,   4U << 16,  105U << 16,    12U << 16,
    12U << 16 | 1, 70U << 16,  10U << 16 | 2, 10U << 16,  20U << 16, 67U << 16,     50011U << 16,
    13U << 16,     122U << 16, 97U << 16,     42U << 16,  94U << 16, 11U << 16 | 1, 11U << 16,
    28U << 16,     99U << 16,  100U << 16,    164U << 16, 17U << 16, 15U << 16,     31U << 16,
    32U << 16,     69U << 16,  27U << 16 | 4, 34U << 16,  7U << 16,  38U << 16 | 2,
};

/// Asks for everything that a consumer may ask for.
class curious_cloud : public scanlib::pointcloud {
  public:
    using scanlib::pointcloud::pointcloud;
    double sum = 0;

  protected:
    void on_shot() override { sum += beam_origin[0] + beam_direction[0] + time; }
    void on_echo_ready(scanlib::echo_position /*position*/) override {
        sum += newest_target().echo_range;
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    curious_cloud cloud((data[0] & 1) != 0);
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
        try {
            cloud.dispatch(words.data(), words.data() + words.size());
        } catch (const std::exception&) {
            continue; // a packet that is refused leaves the object usable
        }
    }
    try {
        std::ostringstream out;
        cloud.get_meta(out, true);
    } catch (const std::exception&) {
        return 0; // the measurement has not started
    }
    return 0;
}
