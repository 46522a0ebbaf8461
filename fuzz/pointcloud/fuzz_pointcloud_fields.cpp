// A stream that is right but for some of its fields, on the whole road from the encoder to the
// targets. The bytes of the input are the options and the packets of a field_stream; no bytes are
// the valid streams themselves.
#include "field_stream.hpp"

#include "scanlib/packet_emitter.hpp"
#include "scanlib/pointcloud.hpp"
#include "scanlib/rxpmarker.hpp"
#include "support/memory_connections.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <memory>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t max_size, unsigned seed);
extern "C" std::size_t LLVMFuzzerCustomCrossOver(const std::uint8_t* a, std::size_t a_size,
                                                 const std::uint8_t* b, std::size_t b_size,
                                                 std::uint8_t* out, std::size_t out_size,
                                                 unsigned seed);

namespace {

/// Words of the codecs: enough for the largest packet of a field_stream.
constexpr std::size_t codec_headroom = 8192;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

/// Takes text and drops it.
class drain : public std::streambuf {
  public:
    std::size_t taken = 0;

  protected:
    int_type overflow(int_type c) override {
        ++taken;
        return c;
    }
    std::streamsize xsputn(const char* /*text*/, std::streamsize n) override {
        taken += static_cast<std::size_t>(n);
        return n;
    }
};

/// Asks for everything that a consumer may ask for, and checks what always holds.
class curious_cloud : public scanlib::pointcloud {
  public:
    using scanlib::pointcloud::pointcloud;
    double sum = 0;

  protected:
    void on_shot() override { sum += beam_origin[0] + beam_direction[0] + time; }
    void on_gap_pulse() override { sum += beam_origin[1] + beam_direction[1] + time; }
    void on_echo_ready(scanlib::echo_position position) override {
        require(target_count != 0 && target_count <= targets.size());
        for (const auto& list : alternatives) {
            require(target_count <= list.size());
            sum += list[target_count - 1].echo_range;
        }
        sum += newest_target().echo_range;
        pointcloud::on_echo_ready(position);
    }
};

std::vector<unsigned char> encoded(const fuzzing::field_stream& stream) {
    const auto out = std::make_shared<test_support::memory_wconnection>();
    {
        const auto encoder = std::make_shared<scanlib::encoder_rxpmarker>(out, 4 * codec_headroom,
                                                                          codec_headroom, true);
        scanlib::packet_emitter emitter(encoder);
        for (const auto& packet : stream.packets) {
            const auto& layout = fuzzing::layout_of(packet);
            emitter.put({layout.id, layout.version}, packet.payload);
        }
        encoder->mark_end();
        emitter.flush();
    }
    return out->bytes();
}

void feed(curious_cloud& cloud, const std::vector<unsigned char>& bytes) {
    scanlib::decoder_rxpmarker decoder(std::make_shared<test_support::memory_rconnection>(bytes),
                                       scanlib::decoder_capacity, scanlib::decoder_headroom, true);
    scanlib::basic_buffer packet;
    for (decoder.get(packet); !packet.empty(); decoder.get(packet)) {
        try {
            cloud.dispatch(packet.begin(), packet.end());
        } catch (const std::exception&) {
            continue; // a packet that is refused leaves the object usable
        }
    }
}

void ask_for_meta(const curious_cloud& cloud) {
    for (const bool pretty : {false, true}) {
        try {
            std::ostringstream out;
            cloud.get_meta(out, pretty);
            require(!out.str().empty());
        } catch (const scanlib::scanlib_exception&) {
            break; // the measurement has not started
        }
    }
}

void run(const fuzzing::field_stream& stream) {
    const auto bytes = encoded(stream);
    drain rows;
    std::ostream sink(&rows);
    curious_cloud cloud((stream.options & 1) != 0);
    cloud.set_text_sink((stream.options & 2) != 0 ? &sink : nullptr);
    if ((stream.options & 4) != 0) {
        const std::uint16_t zones[] = {1, 3, 65535};
        cloud.set_mta_ambiguity(zones, stream.options >> 6, -10.0F, 2000.0F);
    }
    cloud.check_sizes = (stream.options & 8) != 0;
    feed(cloud, bytes);
    ask_for_meta(cloud);
    if ((stream.options & 16) != 0) {
        cloud.reset();
        feed(cloud, bytes);
        ask_for_meta(cloud);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size != 0) {
        run(fuzzing::read({data, size}));
        return 0;
    }
    for (std::size_t n = 0; n < 16; ++n) {
        auto stream = fuzzing::valid_stream(n);
        stream.options = static_cast<std::uint8_t>(2 + n % 2);
        const auto again = fuzzing::read(fuzzing::write(stream));
        require(again.packets.size() == stream.packets.size());
        run(again);
    }
    return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t max_size, unsigned seed) {
    fuzzing::dice d(seed);
    auto stream = fuzzing::read({data, size});
    for (std::size_t n = 1 + d.below(4); n != 0; --n) {
        fuzzing::change(stream, d);
    }
    const auto bytes = fuzzing::write(stream);
    const std::size_t n = std::min(bytes.size(), max_size);
    std::copy_n(bytes.begin(), n, data);
    return n;
}

extern "C" std::size_t LLVMFuzzerCustomCrossOver(const std::uint8_t* a, std::size_t a_size,
                                                 const std::uint8_t* b, std::size_t b_size,
                                                 std::uint8_t* out, std::size_t out_size,
                                                 unsigned seed) {
    fuzzing::dice d(seed);
    auto first = fuzzing::read({a, a_size});
    const auto second = fuzzing::read({b, b_size});
    // The parameters of one measurement, the rest of the other.
    first.packets.resize(d.below(first.packets.size() + 1));
    const std::size_t from = d.below(second.packets.size() + 1);
    first.packets.insert(first.packets.end(),
                         second.packets.begin() + static_cast<std::ptrdiff_t>(from),
                         second.packets.end());
    const auto bytes = fuzzing::write(first);
    const std::size_t n = std::min(bytes.size(), out_size);
    std::copy_n(bytes.begin(), n, out);
    return n;
}
