// Any bytes as a stream: every packet to a consumer that reads every field of every kind, in both
// modes of size checks.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string_view>
#include <type_traits>
#include <vector>

#include "scanlib/handler_visitor.hpp"
#include "scanlib/rxpmarker.hpp"
#include "support/memory_connections.hpp"

namespace {

class touch_everything : public scanlib::handler_visitor<touch_everything> {
  public:
    template<class View>
    void visit(View& p) {
        p.visit([&](auto v) { take(v); });
        if constexpr (requires { p.capacity(); }) {
            take(p.text());
        } else if constexpr (View::has_sequence) {
            for (std::uint32_t i = 0; i < p.size(); ++i) {
                auto e = p[i];
                if constexpr (std::is_arithmetic_v<decltype(e)>) {
                    take(e);
                } else {
                    e.visit([&](auto v) { take(v); });
                }
            }
        }
    }
    std::size_t taken = 0;

  private:
    template<class T>
    void take(const T& v) {
        if constexpr (std::is_arithmetic_v<T>) {
            taken += v != T{};
        } else if constexpr (std::is_convertible_v<T, std::string_view>) {
            taken += std::string_view(v).size();
        } else {
            for (std::size_t i = 0; i < v.size(); ++i) {
                take(v[i]);
            }
        }
    }
};

void run(const std::vector<unsigned char>& bytes, bool check_sizes) {
    const auto connection = std::make_shared<test_support::memory_rconnection>(bytes);
    scanlib::decoder_rxpmarker decoder(connection, scanlib::decoder_capacity,
                                       scanlib::decoder_headroom, false);
    touch_everything consumer;
    consumer.check_sizes = check_sizes;
    scanlib::basic_buffer packet;
    for (decoder.get(packet); packet.begin() != packet.end(); decoder.get(packet)) {
        try {
            consumer.dispatch(packet.begin(), packet.end());
        } catch (const std::exception&) {
            // A refused packet is lost; the next one must decode all the same.
            continue;
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::vector<unsigned char> bytes(data, data + size);
    for (const bool check_sizes : {false, true}) {
        try {
            run(bytes, check_sizes);
        } catch (const std::exception&) {
            continue;
        }
    }
    return 0;
}
