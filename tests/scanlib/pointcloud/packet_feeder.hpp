#pragma once

#include "scanlib/basic_packets.hpp"
#include "scanlib/packet_writers.hpp"

#include <cstdint>
#include <vector>

namespace scanlib::testing {

/// Builds single packets and dispatches each to one consumer.
class packet_feeder {
  public:
    explicit packet_feeder(basic_packets& consumer) : consumer_(consumer) {}

    /// Dispatches a packet of the kind of `Writer`; `fill` gets the writer over cleared words.
    template<class Writer, class Fill>
    void feed(Fill&& fill, std::size_t elements = 0) {
        const std::vector<std::uint32_t> words = words_of<Writer>(fill, elements);
        consumer_.dispatch(words.data(), words.data() + words.size());
    }

    /// Dispatches a packet without fields.
    template<class Writer>
    void feed() {
        feed<Writer>([](Writer&) {});
    }

    /// The words of such a packet, under its long head.
    template<class Writer, class Fill>
    static std::vector<std::uint32_t> words_of(Fill&& fill, std::size_t elements = 0) {
        std::vector<std::uint32_t> words(2 + Writer::words(elements));
        words[0] = 0xFFFFFFFF;
        words[1] = Writer::id << 16 | Writer::version;
        Writer writer(words.data() + 2);
        fill(writer);
        return words;
    }

  private:
    basic_packets& consumer_;
};

} // namespace scanlib::testing
