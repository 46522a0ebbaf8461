#include "conversion_report.hpp"

#include "json.hpp"
#include "losses.hpp"
#include "printable.hpp"
#include "recording_files.hpp"

#include <cinttypes>
#include <cstdio>

namespace host {

namespace {

double megabytes_per_second(const conversion_result& r) {
    return r.seconds > 0 ? static_cast<double>(r.summary.bytes_in) / 1e6 / r.seconds : 0;
}

std::string result_json(const conversion_result& r) {
    json_object out;
    out.text("input", r.input).text("output", r.output);
    add_files(out, r.summary.recording)
        .text("text", r.text)
        .text("errors", r.errors)
        .number("exit_code", static_cast<int>(r.code))
        .number("shots", r.summary.shots)
        .number("echoes", r.summary.echoes)
        .number("waveforms", r.summary.waveforms)
        .number("fragments", r.summary.fragments)
        .number("bytes_in", r.summary.bytes_in)
        .number("bytes_out", r.summary.bytes_out)
        .number("seconds", r.seconds)
        .number("megabytes_per_second", megabytes_per_second(r))
        .raw("stopped_at",
             r.summary.interrupted ? std::to_string(r.summary.offset) : std::string("null"))
        .raw("losses", losses_json(r.summary.losses));
    return out.str();
}

} // namespace

void report_failure(const conversion_result& r) {
    if (r.code == exit_code::good) {
        return;
    }
    if (!r.text.empty()) {
        const bool names_input = r.text.find(r.input) != std::string::npos;
        std::fprintf(stderr, "rxp2k7: %s%s\n", names_input ? "" : (r.input + ": ").c_str(),
                     printable(r.text).c_str());
    }
    if (r.summary.interrupted) {
        const std::string place = r.summary.abandoned
                                      ? "cannot be opened; no output is made"
                                      : "stopped at byte " + std::to_string(r.summary.offset) +
                                            "; what came before is stored";
        std::fprintf(stderr, "rxp2k7: %s: %s: %s\n", r.input.c_str(), place.c_str(),
                     printable(r.summary.cause).c_str());
    }
    tell_unread(r.input, r.summary.recording);
    if (r.summarised && r.summary.store_failed) {
        std::fprintf(stderr, "rxp2k7: %s: the output \"%s\" is not complete\n", r.input.c_str(),
                     r.output.c_str());
    }
}

void print_summary(const conversion_result& r) {
    if (!r.summarised) {
        return;
    }
    const Riegl::ConversionSummary& s = r.summary;
    std::printf("%s -> %s\n", r.input.c_str(), r.output.c_str());
    print_files(s.recording);
    std::printf("  shots      %" PRIu64 "\n  echoes     %" PRIu64 "\n  waveforms  %" PRIu64
                "\n  fragments  %" PRIu64 "\n",
                s.shots, s.echoes, s.waveforms, s.fragments);
    std::printf("  bytes      %" PRIu64 " in, %" PRIu64 " out\n", s.bytes_in, s.bytes_out);
    std::printf("  time       %.2f s, %.1f MB/s\n", r.seconds, megabytes_per_second(r));
    if (s.interrupted) {
        std::printf("  stopped    at byte %" PRIu64 "\n", s.offset);
    }
    for (const Riegl::Loss& l : s.losses) {
        std::printf("  loss       %s: %" PRIu64 ", first at byte %" PRIu64 ". %s\n", l.name.c_str(),
                    l.count, l.first_offset, l.sentence.c_str());
    }
}

std::string json_of(const std::vector<conversion_result>& results) {
    json_array all;
    for (const conversion_result& r : results) {
        all.add(result_json(r));
    }
    return json_object().raw("results", all.str()).str() + "\n";
}

} // namespace host
