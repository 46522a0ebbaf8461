#include "scanlib/wave.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iterator>
#include <sstream>
#include <vector>

// Input: a byte whose lowest bit selects PPS times, the next that samples are decoded, and the next
// that what one object wrote as metadata is read by another; then packets of one byte that chooses
// a kind, one byte with the number of payload words, and the payload.

namespace {

/// The kinds that waveforms are made of, as second words of long heads.
constexpr std::uint32_t kinds[] = {
    2U << 16 | 3, 62U << 16, 87U << 16, 124U << 16, 132U << 16,    107U << 16, 82U << 16,
    119U << 16,   18U << 16, 80U << 16, 88U << 16,  110U << 16,    19U << 16,  55U << 16,
    77U << 16,    78U << 16, 89U << 16, 90U << 16,  12U << 16,     70U << 16,  10U << 16,
    67U << 16,    17U << 16, 31U << 16, 32U << 16,  27U << 16 | 4,
};

constexpr std::size_t most_channels = 16;

/// Looks at everything it is given, and checks what always holds.
class curious_wave : public scanlib::wave {
  public:
    using scanlib::wave::wave;
    double sum = 0;

    void check() const {
        if (channels.size() > most_channels) {
            std::abort();
        }
    }

  protected:
    void on_wave(scanlib::wave_block& block) override {
        if (block.records.empty()) {
            std::abort();
        }
        sum += block.time + block.beam_direction[0] + block.line_angle;
        std::size_t samples = 0;
        for (const scanlib::wave_record& r : block.records) {
            samples += r.samples.size();
            for (const std::uint16_t s : r.samples) {
                sum += s;
            }
        }
        if (samples > open_sample_limit) {
            std::abort();
        }
        for (const auto& [position, amplitude] : block.peaks) {
            sum += position + amplitude;
        }
    }
};

/// The metadata of one object as the stored parameters of another.
void hand_on(const curious_wave& told, bool external_time) {
    std::ostringstream out;
    told.get_meta(out, true);
    const std::string text = out.str();
    std::vector<std::uint32_t> words{0xFFFFFFFF, 119U << 16, 0};
    words.resize(3 + (text.size() + 3) / 4, 0x20202020);
    std::memcpy(words.data() + 3, text.data(), text.size());
    curious_wave reader(external_time, true);
    reader.dispatch(words.data(), words.data() + words.size());
    const std::uint32_t start[] = {0xFFFFFFFF, 31U << 16};
    reader.dispatch(start, start + std::size(start));
    reader.check();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const bool external_time = (data[0] & 1) != 0;
    curious_wave wave(external_time, (data[0] & 2) != 0);
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
        words.shrink_to_fit();
        try {
            wave.dispatch(words.data(), words.data() + words.size());
        } catch (const std::exception&) {
            continue; // a packet that is refused leaves the object usable
        }
    }
    wave.check();
    try {
        if ((data[0] & 4) != 0) {
            hand_on(wave, external_time);
        }
    } catch (const std::exception&) {
        return 0; // the measurement has not started, or a value does not come back
    }
    return 0;
}
