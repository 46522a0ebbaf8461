#pragma once

#include <memory>
#include <string>
#include <vector>

#include "packet_streams.hpp"
#include "scanlib/mem_wconnection.hpp"
#include "scanlib/rewriter.hpp"

namespace rewriting {

using namespace packet_streams;

/// The stream that the rewriter makes of one without preamble.
inline bytes rewritten_bytes(const bytes& stream, const std::string& pxp,
                             std::uint64_t largest_read = ~std::uint64_t{0}) {
    std::vector<char> out;
    scanlib::rewrite(std::make_shared<test_support::memory_rconnection>(stream, largest_read),
                     std::make_shared<scanlib::mem_wconnection>(out), pxp);
    return {out.begin(), out.end()};
}

inline packets rewritten(const packets& all, const std::string& pxp) {
    return read_packets(rewritten_bytes(framed(all), pxp));
}

/// What the rewriter throws.
inline std::string refusal(const packets& all, const std::string& pxp) {
    return streams::failure([&] { rewritten_bytes(framed(all), pxp); });
}

/// An entry of the list "packets"; `identification` and `replacement` are the members of its two
/// objects.
inline std::string entry(const std::string& identification, const std::string& replacement) {
    return R"({"existing_packet_identification":{)" + identification + R"(},"new_packet":{)" +
           replacement + "}}";
}

inline std::string packets_text(const std::string& entries) {
    return R"({"packets":[)" + entries + "]}";
}

/// An override text with "file_verification", whose entries' members are given, and "packets".
inline std::string verified_text(const std::string& verification, const std::string& entries) {
    return R"({"file_verification":[)" + verification + R"(],"packets":[)" + entries + "]}";
}

/// "new_packet" of echo_gap_header.
inline const std::string new_gap = R"("ID":[152,0],"content":["99","2.0"])";
inline const packet made_gap = gap(99, 0x40000000);

} // namespace rewriting
