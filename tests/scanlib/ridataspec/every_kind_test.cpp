// Every kind: random fields, framed, decoded, dispatched and read back equal.
#include <bit>
#include <cstring>
#include <memory>
#include <random>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "scanlib/handler_visitor.hpp"
#include "scanlib/packet_emitter.hpp"
#include "scanlib/packet_record.hpp"
#include "scanlib/rxpmarker.hpp"
#include "support/memory_connections.hpp"

namespace {

namespace detail = scanlib::packets::detail;
using scanlib::field_layout;
using scanlib::packet_index;
using scanlib::packet_layout;

std::size_t elements_in(const packet_layout& l, std::size_t words) {
    return l.has_sequence ? (words * 4 - l.fixed_bits / 8) / (l.element_bits / 8) : 0;
}

/// Collects what the typed accessors read.
class reader : public scanlib::handler_visitor<reader> {
  public:
    packet_index index = packet_index::unknown;
    std::vector<std::uint64_t> values;
    std::vector<packet_index> chain;
    std::string text;

    template<class View>
    void visit(View& p) {
        chain.push_back(View::index);
        if (chain.size() > 1) {
            return;
        }
        index = View::index;
        p.visit([&](auto v) { add(v); });
        if constexpr (requires { p.capacity(); }) {
            text = p.text();
        } else if constexpr (View::has_sequence) {
            for (std::uint32_t i = 0; i < p.size(); ++i) {
                auto e = p[i];
                if constexpr (std::is_arithmetic_v<decltype(e)>) {
                    add(e);
                } else {
                    e.visit([&](auto v) { add(v); });
                }
            }
        }
    }

  private:
    template<class T>
    void add(const T& v) {
        if constexpr (std::is_same_v<T, float>) {
            values.push_back(std::bit_cast<std::uint32_t>(v));
        } else if constexpr (std::is_same_v<T, double>) {
            values.push_back(std::bit_cast<std::uint64_t>(v));
        } else if constexpr (std::is_integral_v<T>) {
            values.push_back(static_cast<std::uint64_t>(v));
        } else if constexpr (requires { v.view(); }) {
            for (const char c : v.view()) {
                values.push_back(static_cast<unsigned char>(c));
            }
        } else {
            for (std::size_t i = 0; i < v.size(); ++i) {
                add(v[i]);
            }
        }
    }
};

/// Brings the sign-extended value of an accessor back to the field's bits; text loses its closing
/// zero.
std::vector<std::uint64_t> expected_values(const packet_layout& l, const std::uint32_t* words,
                                           std::size_t elements) {
    auto append = [](std::vector<std::uint64_t>& out, std::span<const field_layout> fields,
                     const std::uint32_t* w, std::size_t base) {
        for (const field_layout& f : fields) {
            for (std::uint32_t i = 0; f.listed && i < std::max(f.count, 1u); ++i) {
                std::uint64_t bits = detail::extract_bits(w, base + f.bit + i * f.width, f.width);
                if (f.type == scanlib::field_type::text && bits == 0) {
                    break;
                }
                if (f.type == scanlib::field_type::signed_integer &&
                    (bits >> (f.width - 1) & 1) != 0 && f.width < 64) {
                    bits |= ~((std::uint64_t{1} << f.width) - 1);
                }
                out.push_back(bits);
            }
        }
    };
    std::vector<std::uint64_t> out;
    append(out, l.fields, words, 0);
    for (std::size_t i = 0; i < elements && !l.is_text; ++i) {
        append(out, l.element_fields, words, l.fixed_bits + i * l.element_bits);
    }
    return out;
}

class EveryKind : public testing::TestWithParam<int> {};

TEST_P(EveryKind, FramedDecodedDispatchedAndReadBackEqual) {
    std::mt19937 random(static_cast<unsigned>(GetParam()));
    struct sent {
        packet_index index;
        std::vector<std::uint32_t> payload;
    };
    std::vector<sent> all;
    auto out = std::make_shared<test_support::memory_wconnection>();
    {
        auto encoder = std::make_shared<scanlib::encoder_rxpmarker>(
            out, scanlib::encoder_capacity, scanlib::encoder_headroom, true);
        scanlib::packet_emitter emitter(encoder);
        for (std::size_t n = 1; n < scanlib::packet_index_count; ++n) {
            const packet_layout& l = scanlib::layout_of(static_cast<packet_index>(n));
            std::size_t bits = l.fixed_bits;
            if (l.has_sequence) {
                bits += l.element_bits * (1 + random() % 20);
            }
            std::vector<std::uint32_t> payload((bits + 31) / 32);
            for (auto& w : payload) {
                // Words that the framing must escape are made likely.
                w = random() % 4 == 0 ? 0xFFFFFF00u | static_cast<std::uint32_t>(random() % 256)
                                      : static_cast<std::uint32_t>(random());
            }
            emitter.put({l.id, l.version}, payload);
            all.push_back({static_cast<packet_index>(n), payload});
        }
        EXPECT_EQ(emitter.packets(), all.size());
    }
    auto in = std::make_shared<test_support::memory_rconnection>(out->bytes());
    scanlib::decoder_rxpmarker decoder(in, scanlib::decoder_capacity, scanlib::decoder_headroom,
                                       true);
    scanlib::basic_buffer packet;
    for (const sent& s : all) {
        const packet_layout& l = scanlib::layout_of(s.index);
        decoder.get(packet);
        const auto head = scanlib::read_head(packet.begin(), packet.end(), {});
        reader r;
        if (head.id == l.id) {
            ASSERT_EQ(std::vector<std::uint32_t>(head.payload, head.end), s.payload) << l.name;
        }
        // Dispatched under the long form, so that each reader starts without short codes.
        std::vector<std::uint32_t> words{0xFFFFFFFFu, l.id << 16 | l.version};
        words.insert(words.end(), packet.end() - static_cast<std::ptrdiff_t>(s.payload.size()),
                     packet.end());
        r.dispatch(words.data(), words.data() + words.size());
        ASSERT_EQ(r.index, s.index) << l.name;
        const std::size_t elements = elements_in(l, s.payload.size());
        EXPECT_EQ(r.values, expected_values(l, s.payload.data(), elements)) << l.name;
        if (l.is_text) {
            const char* text = reinterpret_cast<const char*>(s.payload.data()) + l.fixed_bits / 8;
            EXPECT_EQ(r.text, std::string(text, strnlen(text, elements))) << l.name;
        }
        // The chain goes down through every version of the id that the catalogue knows.
        std::vector<packet_index> chain;
        for (std::uint32_t v = l.version + 1; v-- > 0 && l.id < 65000;) {
            chain.push_back(scanlib::index_of({l.id, v}));
        }
        if (l.id >= 65000) {
            chain.push_back(s.index);
        }
        EXPECT_EQ(r.chain, chain) << l.name;
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, EveryKind, testing::Range(1, 6));

} // namespace
