#include "scanlib/compressed/packed_stream.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <stdexcept>

// Input: four bytes of options (form, key interval, packet size, echo offsets), then records: a
// byte that chooses shot or echo, and the bytes of its fields. What the writer takes must come back
// equal.

namespace {

using namespace scanlib;
using namespace scanlib::testing;

/// Takes values from the input; zeros behind its end.
class source {
  public:
    source(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    bool empty() const { return at_ >= size_; }
    template<class T>
    T take() {
        T value{};
        const std::size_t n = std::min(sizeof value, size_ - at_);
        if (n != 0) {
            std::memcpy(&value, data_ + at_, n);
        }
        at_ += n;
        return value;
    }

  private:
    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t at_ = 0;
};

/// Writes one record; keeps it if the writer took it.
void write_record(packed_writer& writer, source& in, std::vector<shot_record>& expected) {
    try {
        if (in.take<std::uint8_t>() % 2 == 0) {
            shot_record r;
            // Near the shot before, as often as not far from it.
            const packed_shot last = expected.empty() ? packed_shot{} : expected.back().shot;
            r.shot.time = last.time + static_cast<std::uint64_t>(in.take<std::int32_t>());
            r.shot.line = last.line + static_cast<std::uint32_t>(in.take<std::int16_t>());
            r.shot.frame = last.frame + static_cast<std::uint32_t>(in.take<std::int16_t>());
            r.shot.radiation = in.take<std::uint8_t>();
            writer.shot(r.shot);
            expected.push_back(r);
        } else {
            packed_echo e;
            e.range = in.take<std::uint32_t>();
            e.amplitude = in.take<std::uint16_t>();
            e.reflectance = in.take<std::uint16_t>();
            e.flags = in.take<std::uint8_t>();
            e.deviation = in.take<std::uint16_t>();
            writer.echo(e);
            expected.back().echoes.push_back(e);
        }
    } catch (const std::range_error&) {
        return; // refused, and nothing changed
    } catch (const std::logic_error&) {
        return; // an echo before the first shot
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    source in(data, size);
    const auto form = static_cast<packed_form>(in.take<std::uint8_t>() % 5);
    packing_options options;
    options.shots_per_key = in.take<std::uint8_t>();
    options.shots_per_packet = in.take<std::uint8_t>();
    options.echo_offsets = (in.take<std::uint8_t>() & 1) != 0;
    std::vector<shot_record> expected;
    const auto packets = packets_of([&](packet_emitter& emitter) {
        packed_writer writer(emitter, form, options);
        while (!in.empty()) {
            write_record(writer, in, expected);
        }
        writer.flush();
    });
    record_reader reader;
    feed(reader, packets);
    if (reader.records != expected) {
        std::cerr << "what was packed does not come back\n";
        std::abort();
    }
    return 0;
}
