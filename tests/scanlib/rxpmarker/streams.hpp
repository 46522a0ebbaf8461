#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "scanlib/rxpmarker.hpp"
#include "support/memory_connections.hpp"

namespace streams {

using words = std::vector<std::uint32_t>;
using packets = std::vector<words>;

inline const words preamble{0x00000010, 0x0B000000, 0x67656952, 0x534D4C6C};

inline std::vector<unsigned char> bytes(const words& w) {
    std::vector<unsigned char> b(w.size() * 4);
    std::memcpy(b.data(), w.data(), b.size());
    return b;
}

inline words concat(words a, const words& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

inline words words_of(const scanlib::basic_buffer& b) {
    return {b.begin(), b.end()};
}

/// A decoder of the settled size over bytes in memory.
inline scanlib::decoder_rxpmarker decoder(std::vector<unsigned char> b, bool with_preamble,
                                          std::uint64_t largest_read = ~std::uint64_t{0}) {
    return {std::make_shared<test_support::memory_rconnection>(std::move(b), largest_read),
            scanlib::decoder_capacity, scanlib::decoder_headroom, with_preamble};
}

/// All packets up to the clean end.
inline packets decode_all(scanlib::decoder_rxpmarker& d) {
    packets all;
    scanlib::basic_buffer packet;
    for (d.get(packet); !packet.empty(); d.get(packet)) {
        all.push_back(words_of(packet));
    }
    return all;
}

/// What the encoder of the settled size writes for these packets.
inline std::vector<unsigned char> encode_all(const packets& all, bool with_preamble) {
    auto out = std::make_shared<test_support::memory_wconnection>();
    {
        scanlib::encoder_rxpmarker encoder(out, scanlib::encoder_capacity,
                                           scanlib::encoder_headroom, with_preamble);
        scanlib::basic_buffer area;
        encoder.put(area);
        for (const words& w : all) {
            area.resize(w.size());
            std::copy(w.begin(), w.end(), area.begin());
            encoder.put(area);
        }
    }
    return out->bytes();
}

/// Text of the failure without the parts in front of the message.
inline std::string failure(const std::function<void()>& f) {
    try {
        f();
    } catch (const std::exception& e) {
        const std::string text = e.what();
        const std::size_t at = text.rfind(" : ");
        return at == std::string::npos ? text : text.substr(at + 3);
    }
    return "no failure";
}

} // namespace streams
