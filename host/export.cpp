#include "command_result.hpp"
#include "commands.hpp"
#include "contained_run.hpp"
#include "export/csv_writer.hpp"
#include "export/las_writer.hpp"
#include "export/ply_writer.hpp"
#include "export/point_join.hpp"
#include "help.hpp"
#include "input_file.hpp"
#include "json.hpp"
#include "printable.hpp"
#include "progress.hpp"
#include "recording_output.hpp"
#include "scan_attribute.hpp"
#include "standard_output.hpp"
#include "terminal.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace host {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t points_at_once = 4096;

struct export_options {
    std::string input;
    std::string output;
    std::string format; ///< empty for what the output's name says
    bool json = false;

    static constexpr const char* standard = "-";
    bool to_standard_output() const { return output == standard; }
};

struct export_result {
    std::string text; ///< why not all could be read
    std::uint64_t points = 0;
    std::uint64_t too_far = 0; ///< points that the format cannot hold
    join_counts counts;
    std::uint64_t bytes_out = 0;
    double seconds = 0;
    bool written = false; ///< the output is whole, with what could be read
    exit_code code = exit_code::good;
};

bool is_complete(const export_options& options) {
    return !options.input.ends_with(".part");
}

[[noreturn]] void refuse_usage(const std::string& argument, const std::string& reason) {
    throw CLI::ValidationError(argument, reason);
}

void choose_format(export_options& options, const std::vector<std::string>& formats) {
    if (!options.format.empty()) {
        return;
    }
    if (options.to_standard_output()) {
        options.format = "csv";
        return;
    }
    std::string suffix = fs::path(options.output).extension().string();
    std::transform(suffix.begin(), suffix.end(), suffix.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const auto known = std::find_if(formats.begin(), formats.end(),
                                    [&](const std::string& f) { return suffix == "." + f; });
    if (known == formats.end()) {
        refuse_usage("OUT", "\"" + options.output +
                                "\" does not end in .ply, .las or .csv; tell its --format");
    }
    options.format = *known;
}

void check_output(const export_options& options) {
    if (options.to_standard_output()) {
        if (options.format != "csv") {
            refuse_usage("OUT", "only csv can be written to standard output");
        }
        return;
    }
    if (recording_output::replaces(options.output, options.input)) {
        refuse_usage("OUT", "\"" + options.output + "\" would replace the input");
    }
    std::error_code error;
    const auto kind = fs::status(options.output, error).type();
    const bool sequential = kind == fs::file_type::fifo || kind == fs::file_type::character ||
                            kind == fs::file_type::socket;
    if (sequential && options.format != "csv") {
        refuse_usage("OUT", "\"" + options.output + "\" is no file; only csv can be written to it");
    }
}

std::unique_ptr<point_writer> make_writer(const std::string& format, byte_output& to,
                                          const std::string& instrument) {
    if (format == "las") {
        return std::make_unique<las_writer>(to, instrument);
    }
    if (format == "ply") {
        return std::make_unique<ply_writer>(to);
    }
    return std::make_unique<csv_writer>(to);
}

/// Writes the points of a slice; tells in `result` what became of them.
void write_slice(const export_options& options, const Skein::K7Reader& file,
                 const std::string& slice, point_writer& writer, export_result& result) {
    try {
        point_join join(file, slice);
        progress_line line(fs::path(options.input).filename().string(), {"echoes", join.size()});
        std::vector<exported_point> points(points_at_once);
        for (std::size_t n = points.size(); n == points.size();) {
            n = join.next(points);
            writer.write({points.data(), n});
            line.show(join.counts().echoes);
        }
        result.counts += join.counts();
        result.text = join.failure();
    } catch (const Skein::K7ReadError& e) {
        result.text = e.what();
    }
}

/// Where the bytes go: a file, or standard output.
class export_output {
  public:
    /// Throws simulator::output_error, as the others do.
    explicit export_output(const export_options& options) {
        if (options.to_standard_output()) {
            to_ = std::make_shared<standard_output>();
        } else {
            file_ = std::make_unique<recording_output>(options.output);
            to_ = file_->connection();
        }
    }
    scanlib::basic_wconnection& connection() { return *to_; }
    /// After the last byte: replaces the first ones.
    void finish(const std::string& head) {
        if (!head.empty()) {
            file_->write_again(0, head.data(), head.size());
        }
        if (!file_) {
            to_->close();
        }
    }
    void publish() {
        if (file_) {
            file_->publish();
        }
    }

  private:
    std::unique_ptr<recording_output> file_;
    std::shared_ptr<scanlib::basic_wconnection> to_;
};

/// Writes the points of all slices, as far as they can be read. Throws Skein::K7ReadError where
/// none can, and simulator::output_error.
void write_points(const export_options& options, export_output& output, export_result& result) {
    const Skein::K7Reader file(options.input);
    const std::vector<std::string> slices = file.slices();
    if (slices.empty()) {
        throw Skein::K7ReadError(options.input, "/", "there is no slice");
    }
    byte_output bytes(output.connection());
    const auto writer = make_writer(options.format, bytes, instrument_name(file, slices.front()));
    for (std::size_t i = 0; i < slices.size() && result.text.empty(); ++i) {
        write_slice(options, file, slices[i], *writer, result);
    }
    bytes.flush();
    output.finish(writer->head());
    result.points = writer->written();
    result.too_far = writer->left_out();
    result.bytes_out = bytes.written();
    result.code = result.text.empty()  ? exit_code::good
                  : result.points == 0 ? exit_code::input_unreadable
                                       : exit_code::input_damaged;
    result.written = result.code != exit_code::input_unreadable;
}

std::string json_of(const export_options& options, const export_result& result) {
    return json_object()
        .text("input", options.input)
        .text("output", options.output)
        .text("format", options.format)
        .number("exit_code", static_cast<int>(result.code))
        .text("text", result.text)
        .truth("complete", is_complete(options))
        .number("points", result.points)
        .number("echoes", result.counts.echoes)
        .number("echoes_without_shot", result.counts.without_shot)
        .number("echoes_without_place", result.counts.not_finite)
        .number("points_too_far", result.too_far)
        .number("bytes_out", result.bytes_out)
        .number("seconds", result.seconds)
        .str();
}

std::string summary_of(const export_options& options, const export_result& result) {
    std::string text = options.input + " -> " + options.output + "\n";
    const auto add = [&](const char* name, const std::string& value) {
        text += std::string("  ") + name + std::string(11 - std::string(name).size(), ' ') + value +
                "\n";
    };
    add("points", std::to_string(result.points));
    add("bytes", std::to_string(result.bytes_out));
    char rate[64];
    std::snprintf(rate, sizeof rate, "%.2f s, %.1f million points/s", result.seconds,
                  static_cast<double>(result.points) / std::max(result.seconds, 1e-9) / 1e6);
    add("time", rate);
    return text;
}

void warn(const export_options& options, std::uint64_t count, const char* what) {
    if (count != 0) {
        complain("%s: left out %" PRIu64 " %s", options.input.c_str(), count, what);
    }
}

void tell(const export_options& options, const export_result& result) {
    if (!is_complete(options) && result.written) {
        complain("%s is not complete; exported is what it holds so far", options.input.c_str());
    }
    warn(options, result.counts.without_shot, "echoes without a shot of their time");
    warn(options, result.counts.not_finite, "echoes whose place is no number");
    warn(options, result.too_far, "points too far away for the format");
    if (!result.text.empty()) {
        complain("%s", printable(result.text).c_str());
    }
}

/// Tells on standard error what is to be told, and returns what is printed.
std::string told_of(const export_options& options, const export_result& result) {
    tell(options, result);
    return options.json     ? json_of(options, result) + "\n"
           : result.written ? summary_of(options, result)
                            : std::string();
}

export_result failed(std::string text, exit_code code) {
    export_result result;
    result.text = std::move(text);
    result.code = code;
    return result;
}

/// In the contained process: fills the output, which the other one publishes.
export_result fill(const export_options& options, export_output& output) {
    const auto start = std::chrono::steady_clock::now();
    export_result result;
    try {
        write_points(options, output, result);
    } catch (const Skein::K7ReadError& e) {
        return failed(e.what(), exit_code::input_unreadable);
    } catch (const simulator::output_error& e) {
        return failed(e.what(), exit_code::output_failed);
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    result.seconds = took.count();
    return result;
}

/// Returns what is printed.
std::string export_readable(const export_options& options, exit_code& code) {
    export_output output(options);
    const contained_result run = run_contained(most_seconds(options.input), [&](std::string& told) {
        const export_result result = fill(options, output);
        told = told_of(options, result);
        return result.code;
    });
    code = run.code;
    if (!run.failure.empty()) {
        return told_of(options,
                       failed("cannot read \"" + options.input + "\": " + run.failure, run.code));
    }
    if (run.code == exit_code::good || run.code == exit_code::input_damaged) {
        output.publish();
    }
    return run.told;
}

std::string export_points(const export_options& options, exit_code& code) {
    const std::string unreadable = reason_unreadable(options.input);
    if (!unreadable.empty()) {
        code = exit_code::input_unreadable;
        return told_of(options, failed(unreadable, code));
    }
    try {
        return export_readable(options, code);
    } catch (const simulator::output_error& e) {
        code = exit_code::output_failed;
        return told_of(options, failed(e.what(), code));
    }
}

exit_code run(const export_options& options) {
    check_output(options);
    exit_code code = exit_code::good;
    const std::string told = export_points(options, code);
    std::fputs(told.c_str(), options.to_standard_output() ? stderr : stdout);
    return flushed(code);
}

} // namespace

void add_export(CLI::App& app, exit_code& result) {
    static const std::vector<std::string> formats{"csv", "las", "ply"};
    CLI::App* command =
        app.add_subcommand("export", "Write the points of a K7 file as PLY, LAS or CSV.");
    auto options = std::make_shared<export_options>();
    command->add_option("FILE", options->input, "K7 file, or its .part")->required();
    command
        ->add_option("OUT", options->output,
                     "file to write, ending in .ply, .las or .csv; - for standard output, as csv")
        ->required();
    command->add_option("--format", options->format, "format, whatever the name of OUT ends in")
        ->check(CLI::IsMember(formats));
    command->add_flag("--json", options->json, json_help);
    command->footer(examples_text(
        {{"Points for a viewer of LAS files", "rxp2k7 export out/scan.k7 scan.las"},
         {"Echoes above 20 dB, as a table", "rxp2k7 export out/scan.k7 - | awk -F, '$5 > 20'"}}));
    command->callback([options, &result] {
        choose_format(*options, formats);
        result = run(*options);
    });
}

} // namespace host
