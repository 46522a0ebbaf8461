#include "inspection_report.hpp"

#include "json.hpp"
#include "losses.hpp"
#include "printable.hpp"
#include "recording_files.hpp"
#include "terminal.hpp"

#include <cinttypes>
#include <cstdio>

namespace host {

namespace {

/// A time as it stands in the names of the PDFs.
std::string seconds_text(double time) {
    return json_number(time);
}

std::string range_text(const inspection_result& r) {
    return seconds_text(r.time_range.first) + " s to " + seconds_text(r.time_range.second) + " s";
}

std::string span_text(const Riegl::InspectionSummary& s) {
    return seconds_text(s.first_time) + " s to " + seconds_text(s.last_time) + " s";
}

/// Plots that a later one of the same shot took the place of.
std::uint64_t replaced(const Riegl::InspectionSummary& s) {
    return s.plots - s.files;
}

} // namespace

std::string reason_nothing_drawn(const inspection_result& r) {
    const Riegl::InspectionSummary& s = r.summary;
    if (s.plots != 0 || s.failed_plots != 0) {
        return {};
    }
    if (s.records == 0) {
        return "nothing to draw: the stream holds no waveforms of shots with a time";
    }
    if (s.shots_in_range == 0) {
        return "nothing to draw: no shot lies within " + range_text(r) +
               "; the shots with waveforms run from " + span_text(s);
    }
    return "nothing to draw: none of the " + std::to_string(s.shots_in_range) + " shots within " +
           range_text(r) + " has waveforms";
}

void report_failure(const inspection_result& r) {
    if (r.code == exit_code::good) {
        return;
    }
    const Riegl::InspectionSummary& s = r.summary;
    if (!r.text.empty()) {
        const bool names_input = r.text.find(r.input) != std::string::npos;
        complain("%s%s", names_input ? "" : (r.input + ": ").c_str(), printable(r.text).c_str());
    }
    if (r.stopped) {
        complain("%s: stopped at byte %" PRIu64 "; what came before is drawn", r.input.c_str(),
                 s.offset);
    }
    tell_unread(r.input, s.recording);
    if (s.failed_plots != 0) {
        complain("%s: %" PRIu64 " plots could not be written to \"%s\": %s", r.input.c_str(),
                 s.failed_plots, r.folder.c_str(), s.failure.c_str());
    }
}

void print_summary(const inspection_result& r) {
    if (!r.summarised) {
        return;
    }
    const Riegl::InspectionSummary& s = r.summary;
    std::printf("%s -> %s\n", r.input.c_str(), r.folder.c_str());
    print_files(s.recording);
    std::printf("  shots      %" PRIu64 " within %s\n", s.shots_in_range, range_text(r).c_str());
    if (s.shots != 0) {
        std::printf("             of %" PRIu64 " from %s\n", s.shots, span_text(s).c_str());
    }
    std::printf("  PDFs       %" PRIu64 "\n  records    %" PRIu64 " drawn\n", s.files, s.plots);
    if (replaced(s) != 0) {
        std::printf("  replaced   %" PRIu64 ": a PDF shows the last record of its shot\n",
                    replaced(s));
    }
    if (s.empty_plots != 0) {
        std::printf("  empty      %" PRIu64 ": records without samples\n", s.empty_plots);
    }
    if (s.compressed_plots != 0) {
        std::printf("  compressed %" PRIu64 ": drawn as the words of the recording\n",
                    s.compressed_plots);
    }
    if (s.failed_plots != 0) {
        std::printf("  failed     %" PRIu64 "\n", s.failed_plots);
    }
    std::printf("  bytes      %" PRIu64 " in\n  time       %.2f s\n", s.bytes_in, r.seconds);
    if (r.stopped) {
        std::printf("  stopped    at byte %" PRIu64 "\n", s.offset);
    }
    for (const Riegl::Loss& l : s.losses) {
        std::printf("  loss       %s: %" PRIu64 ", first at byte %" PRIu64 ". %s\n", l.name.c_str(),
                    l.count, l.first_offset, l.sentence.c_str());
    }
}

std::string json_of(const inspection_result& r) {
    const Riegl::InspectionSummary& s = r.summary;
    json_object out;
    out.text("input", r.input).text("output", r.folder);
    add_files(out, s.recording)
        .text("text", r.text)
        .number("exit_code", static_cast<int>(r.code))
        .number("shots", s.shots)
        .raw("time",
             s.shots == 0
                 ? "null"
                 : json_object().number("first", s.first_time).number("last", s.last_time).str())
        .number("records", s.records)
        .number("shots_in_range", s.shots_in_range)
        .number("pdfs", s.files)
        .number("plots", s.plots)
        .number("replaced_plots", replaced(s))
        .number("empty_plots", s.empty_plots)
        .number("compressed_plots", s.compressed_plots)
        .number("failed_plots", s.failed_plots)
        .text("failure", s.failure)
        .number("bytes_in", s.bytes_in)
        .number("seconds", r.seconds)
        .raw("stopped_at", r.stopped ? std::to_string(s.offset) : std::string("null"))
        .raw("losses", losses_json(s.losses));
    json_array results;
    results.add(out.str());
    return json_object().raw("results", results.str()).str() + "\n";
}

} // namespace host
