#include "conversion_report.hpp"

#include "json.hpp"
#include "losses.hpp"
#include "printable.hpp"
#include "recording_files.hpp"
#include "terminal.hpp"

#include <cinttypes>
#include <cstdio>

namespace host {

namespace {

double megabytes_per_second(const conversion_result& r) {
    return r.seconds > 0 ? static_cast<double>(r.summary.bytes_in) / 1e6 / r.seconds : 0;
}

/// What a shell makes of a process that a signal ended.
int shell_code_of(int signal) {
    constexpr int shell_base = 128;
    return shell_base + signal;
}

/// How far an input was read, and what became of that.
std::string place_of(const conversion_result& r) {
    if (r.summary.abandoned) {
        return "cannot be opened; no output is made";
    }
    const std::string place = " at byte " + std::to_string(r.summary.offset) + "; ";
    if (!r.summary.stopped) {
        return "stopped" + place + "what came before is stored";
    }
    return "ended by signal " + std::to_string(r.ended_by) + place +
           (r.summary.bytes_out == 0 ? "nothing is stored"
                                     : "what came before is in \"" + r.output + ".part\"");
}

std::string result_json(const conversion_result& r) {
    json_object out;
    out.text("input", r.input).text("output", r.output);
    add_files(out, r.summary.recording)
        .text("text", r.text)
        .text("errors", r.errors)
        .number("exit_code", r.ended_by != 0 ? shell_code_of(r.ended_by) : static_cast<int>(r.code))
        .truth("skipped", r.skipped)
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
    if (r.code == exit_code::good && r.ended_by == 0) {
        return;
    }
    if (!r.text.empty() && !r.summary.stopped) {
        const bool names_input = r.text.find(r.input) != std::string::npos;
        complain("%s%s", names_input ? "" : (r.input + ": ").c_str(), printable(r.text).c_str());
    }
    if (r.summary.interrupted) {
        const std::string cause = r.summary.stopped ? "" : ": " + printable(r.summary.cause);
        complain("%s: %s%s", r.input.c_str(), place_of(r).c_str(), cause.c_str());
    }
    tell_unread(r.input, r.summary.recording);
    if (r.summarised && r.summary.store_failed) {
        complain("%s: the output \"%s\" is not complete", r.input.c_str(), r.output.c_str());
    }
}

void print_summary(const conversion_result& r) {
    if (r.skipped) {
        std::printf("%s -> %s\n  skipped    it is done already\n", r.input.c_str(),
                    r.output.c_str());
        return;
    }
    if (!r.summarised) {
        return;
    }
    const Riegl::ConversionSummary& s = r.summary;
    std::printf("%s -> %s%s\n", r.input.c_str(), r.output.c_str(), s.stopped ? ".part" : "");
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

conversion_outcome outcome_of(const conversion_result& r) {
    return {r.code, r.ended_by, r.skipped, result_json(r)};
}

conversion_result not_converted(const std::string& input, const std::string& output, int signal) {
    conversion_result result;
    result.input = input;
    result.output = output;
    result.text = "not converted: ended by signal " + std::to_string(signal) + " before";
    result.ended_by = signal;
    return result;
}

std::string json_of(const std::vector<conversion_outcome>& outcomes) {
    json_array all;
    for (const conversion_outcome& o : outcomes) {
        all.add(o.json);
    }
    return json_object().raw("results", all.str()).str() + "\n";
}

} // namespace host
