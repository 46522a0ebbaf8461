// Any bytes as a stream, read in pieces of any size: every packet begins with a start word, and
// encoding the packets again gives a stream that decodes to the same packets.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <memory>
#include <vector>

#include "scanlib/rxpmarker.hpp"
#include "support/memory_connections.hpp"

namespace {

using packets = std::vector<std::vector<std::uint32_t>>;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

packets decode(const std::vector<unsigned char>& bytes, std::uint64_t largest_read,
               bool with_preamble) {
    packets all;
    const auto connection = std::make_shared<test_support::memory_rconnection>(bytes, largest_read);
    scanlib::decoder_rxpmarker decoder(connection, scanlib::decoder_capacity,
                                       scanlib::decoder_headroom, with_preamble);
    scanlib::basic_buffer packet;
    try {
        for (decoder.get(packet); !packet.empty(); decoder.get(packet)) {
            require(*packet.begin() > 0xFFFFFF00u);
            require(decoder.tell() <= bytes.size());
            all.emplace_back(packet.begin(), packet.end());
        }
    } catch (const scanlib::scanlib_exception&) {
        return all;
    }
    return all;
}

std::vector<unsigned char> encode(const packets& all) {
    auto out = std::make_shared<test_support::memory_wconnection>();
    {
        scanlib::encoder_rxpmarker encoder(out, scanlib::encoder_capacity,
                                           scanlib::encoder_headroom, true);
        scanlib::basic_buffer area;
        encoder.put(area);
        for (const auto& w : all) {
            area.resize(w.size());
            std::copy(w.begin(), w.end(), area.begin());
            encoder.put(area);
        }
    }
    return out->bytes();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0 || size > 100000) {
        return 0;
    }
    const std::uint64_t largest_read = 1 + data[0];
    const std::vector<unsigned char> bytes(data + 1, data + size);
    const packets all = decode(bytes, largest_read, false);
    require(decode(encode(all), largest_read, true) == all);
    decode(bytes, largest_read, true);
    return 0;
}
