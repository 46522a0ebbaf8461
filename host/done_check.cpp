#include "done_check.hpp"

#include "contained_run.hpp"
#include "input_file.hpp"
#include "verify_file.hpp"

#include "bundle_interface/skein.hpp"

#include <array>
#include <cinttypes>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <optional>
#include <system_error>

namespace host {

namespace {

namespace fs = std::filesystem;

/// The time of the newest file of a recording; nothing for a live stream.
std::optional<fs::file_time_type> newest_of(const std::string& input) {
    std::optional<fs::file_time_type> newest;
    for (const std::string& file : files_of_input(input)) {
        std::error_code gone;
        const auto time = fs::last_write_time(file, gone);
        if (!gone && (!newest || time > *newest)) {
            newest = time;
        }
    }
    return newest;
}

/// Why the names and times alone tell that the output is not done; empty if they do not.
std::string reason_outside(const std::string& input, const std::string& output) {
    const auto newest = newest_of(input);
    if (!newest) {
        return "it is no recording on disk";
    }
    std::error_code missing;
    const auto time = fs::last_write_time(output, missing);
    if (missing || !fs::is_regular_file(output, missing)) {
        return "there is none";
    }
    if (fs::exists(output + ".part", missing)) {
        return "a later conversion did not come to its end";
    }
    return time > *newest ? std::string() : "the recording is not older";
}

/// Why the file's content tells so.
std::string reason_inside(const std::string& output, k7_counts& counts) {
    const auto creator = Skein::K7Reader(output).attribute("/", "Creator");
    if (!creator || creator->text != Skein::bundleCreator()) {
        return "another version wrote it";
    }
    k7_findings findings;
    verify_k7_file(output, findings, counts, verify_depth::structure);
    return findings.count() == 0 ? std::string() : findings.kept().front().text;
}

constexpr const char* counts_form = "%" SCNu64 " %" SCNu64 " %" SCNu64 " %" SCNu64;

std::string text_of(const k7_counts& c) {
    return std::to_string(c.shots) + " " + std::to_string(c.echoes) + " " +
           std::to_string(c.waveforms) + " " + std::to_string(c.fragments);
}

bool read_counts(const std::string& text, k7_counts& c) {
    return std::sscanf(text.c_str(), counts_form, &c.shots, &c.echoes, &c.waveforms,
                       &c.fragments) == 4;
}

} // namespace

done_output find_done(const std::string& input, const std::string& output) {
    done_output found;
    found.reason = reason_outside(input, output);
    if (!found.reason.empty()) {
        return found;
    }
    const contained_result inside = run_contained(most_seconds(output), [&](std::string& told) {
        k7_counts counts;
        try {
            told = reason_inside(output, counts);
        } catch (const Skein::K7ReadError& e) {
            told = e.cause();
        }
        const bool done = told.empty();
        told = done ? text_of(counts) : told;
        return done ? exit_code::good : exit_code::input_damaged;
    });
    found.done = inside.code == exit_code::good && read_counts(inside.told, found.counts);
    if (!found.done) {
        found.reason = inside.failure.empty() ? inside.told : inside.failure;
        return found;
    }
    std::error_code unknown;
    const auto bytes = fs::file_size(output, unknown);
    found.bytes = unknown ? 0 : bytes;
    return found;
}

void keep_from_counting_as_done(const std::string& input, const std::string& output) {
    std::error_code ignored;
    if (const auto newest = newest_of(input)) {
        fs::last_write_time(output, *newest, ignored);
    }
}

} // namespace host
