#include "commands.hpp"
#include "conversion_report.hpp"
#include "input_file.hpp"
#include "input_registry.hpp"
#include "interrupts.hpp"
#include "numbers.hpp"
#include "output_folder.hpp"
#include "printable.hpp"
#include "progress.hpp"
#include "stdout_guard.hpp"
#include "time_range.hpp"

#include "frontend/conversion.hpp"
#include "scanlib/file_set.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace host {

namespace {

struct convert_options {
    std::vector<std::string> inputs;
    std::string out_dir = ".";
    std::uint32_t fragment_size = 100000;
    std::uint32_t waveform_length = 256;
    bool no_echoes = false;
    bool no_waveforms = false;
    std::optional<std::pair<double, double>> time_range;
    std::string error_log;
    std::uint32_t compress = 0;
    bool json = false;
};

/// Shows the library's reports, and keeps its summary.
class monitor : public Riegl::ProgressMonitor {
  public:
    monitor(const std::string& input, conversion_result& result)
        : line_(std::filesystem::path(input).filename().string(), "packets",
                estimate_packets(input))
        , result_(result) {}

    void report(const std::string& /*label*/, int current, int total) override {
        // The last report, 1 of 1, is about the writing of the rest.
        if (total != 1) {
            line_.show(static_cast<std::uint64_t>(current < 0 ? 0 : current));
        }
    }
    void summarise(const Riegl::ConversionSummary& summary) override {
        result_.summary = summary;
        result_.summarised = true;
    }
    void connecting(const std::shared_ptr<Riegl::StreamControl>& stream) override {
        const std::lock_guard lock(mutex_);
        stream_ = stream;
    }
    /// From any thread; null before the conversion has come so far.
    std::shared_ptr<Riegl::StreamControl> stream() {
        const std::lock_guard lock(mutex_);
        return stream_;
    }
    progress_line& line() { return line_; }

  private:
    progress_line line_;
    conversion_result& result_;
    std::mutex mutex_; ///< of the stream
    std::shared_ptr<Riegl::StreamControl> stream_;
};

/// Lets Ctrl-C end a live conversion with what it has. A file's conversion ends with the process.
class live_interrupts {
  public:
    live_interrupts(const std::string& input, monitor& shown) {
        if (is_live_stream(input)) {
            signals_.emplace([&shown] { end(shown, &Riegl::StreamControl::stop); },
                             [&shown] { end(shown, &Riegl::StreamControl::cancel); });
        }
    }
    bool any() const { return signals_ && signals_->count() != 0; }

  private:
    static void end(monitor& shown, void (Riegl::StreamControl::*how)()) {
        if (const auto stream = shown.stream()) {
            ((*stream).*how)();
        }
    }
    std::optional<interrupts> signals_;
};

/// Sends the library's messages to standard error without tearing the bar.
class console_lines {
  public:
    explicit console_lines(progress_line& line) {
        Holdfast::Console::setSink([&line](const std::string& message) {
            line.clear();
            std::fprintf(stderr, "%s\n", printable(message).c_str());
        });
    }
    console_lines(const console_lines&) = delete;
    console_lines& operator=(const console_lines&) = delete;
    ~console_lines() { Holdfast::Console::setSink({}); }
};

std::filesystem::path output_of(const convert_options& options, const std::string& input) {
    return std::filesystem::path(options.out_dir) /
           (std::filesystem::path(input).stem().string() + ".k7");
}

[[noreturn]] void refuse(const std::string& reason) {
    throw CLI::ValidationError("convert", reason);
}

/// Refuses a continuation beside the input that it is a part of.
void refuse_continuation(const std::string& input, const std::string& other) {
    for (const scanlib::file_part& part : scanlib::find_file_set(input).data) {
        if (part.name == other && other != input) {
            refuse("\"" + other + "\" is read as part of \"" + input + "\"; leave it out");
        }
    }
}

/// Refuses inputs that would overwrite each other's output, or a file of an input.
void check_outputs(const convert_options& options) {
    input_registry read;
    for (const std::string& input : options.inputs) {
        read.add(input);
    }
    std::map<std::filesystem::path, std::string> written; // and from which input
    for (const std::string& input : options.inputs) {
        const auto output = output_of(options, input);
        const auto [other, fresh] = written.try_emplace(output, input);
        if (!fresh) {
            refuse_continuation(other->second, input);
            refuse_continuation(input, other->second);
            refuse("\"" + other->second + "\" and \"" + input + "\" would both be written to \"" +
                   output.string() + "\"");
        }
        if (const auto* const victim = read.find(output)) {
            refuse("the output of \"" + input + "\" would overwrite " +
                   (victim->file == victim->input
                        ? "the input \"" + victim->input + "\""
                        : "\"" + victim->file + "\", which belongs to the input \"" +
                              victim->input + "\""));
        }
    }
}

Riegl::Input input_record(const convert_options& options) {
    Riegl::Input record;
    record.FragSize = options.fragment_size;
    record.ExportOPP = !options.no_echoes;
    record.ExportFWF = !options.no_waveforms;
    record.Exported_FWF_LENGTH = options.waveform_length;
    record.OutDir = options.out_dir;
    record.ErrorLog = options.error_log;
    if (options.time_range) {
        record.TimeRange = Holdfast::StrongPtr<Skein::DataRange<double>>(
            new Skein::DataRange<double>(options.time_range->first, options.time_range->second));
    }
    if (options.compress != 0) {
        record.Transformations =
            Holdfast::StrongPtr<Skein::StorageTransformations>(new Skein::StorageTransformations);
        record.Transformations->Shuffle = true;
        record.Transformations->DeflateLevel = options.compress;
    }
    return record;
}

/// Which failure an exception of the library was.
exit_code code_of_exception(const conversion_result& result, const std::exception& e) {
    if (dynamic_cast<const std::bad_alloc*>(&e) != nullptr) {
        return exit_code::internal_failure;
    }
    if (result.summary.store_failed) {
        return exit_code::output_failed;
    }
    return result.summary.abandoned ? exit_code::input_unreadable : exit_code::internal_failure;
}

exit_code code_of_result(const conversion_result& result) {
    if (result.summary.store_failed) {
        return exit_code::output_failed;
    }
    if (result.summary.abandoned) {
        return exit_code::input_unreadable;
    }
    // With a text alone, what there was is stored, but it told too little.
    const bool damaged = result.summary.interrupted || !result.text.empty() ||
                         !result.summary.recording.unread.empty();
    return damaged ? exit_code::input_damaged : exit_code::good;
}

void convert_readable(const convert_options& options, conversion_result& result) {
    Riegl::Input record = input_record(options);
    auto* const shown = new monitor(result.input, result);
    record.Progress = Holdfast::StrongPtr<Riegl::ProgressMonitor>(shown);
    const console_lines lines(shown->line());
    const live_interrupts signals(result.input, *shown);
    const auto start = std::chrono::steady_clock::now();
    try {
        result.text = Riegl::rxpToSkeinK7(result.input, record);
        result.code = code_of_result(result);
    } catch (const std::exception& e) {
        result.text = e.what();
        result.code = code_of_exception(result, e);
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    result.seconds = took.count();
    result.errors = record.Errors;
    result.interrupted_by_user = signals.any();
}

conversion_result convert_one(const convert_options& options, const std::string& input) {
    conversion_result result;
    result.input = input;
    result.output = output_of(options, input).string();
    result.text = reason_unreadable(input);
    if (!result.text.empty()) {
        result.code = exit_code::input_unreadable;
        return result;
    }
    convert_readable(options, result);
    return result;
}

std::vector<conversion_result> convert_all(const convert_options& options) {
    std::vector<conversion_result> results;
    for (const std::string& input : options.inputs) {
        results.push_back(convert_one(options, input));
        report_failure(results.back());
        if (!options.json) {
            print_summary(results.back());
        }
        if (results.back().interrupted_by_user) {
            break;
        }
    }
    return results;
}

/// One input's code is the program's; of several, any failure makes it "some failed".
exit_code joint_code(const std::vector<conversion_result>& results) {
    if (results.size() == 1) {
        return results.front().code;
    }
    const bool all_good = std::all_of(results.begin(), results.end(),
                                      [](const auto& r) { return r.code == exit_code::good; });
    return all_good ? exit_code::good : exit_code::some_inputs_failed;
}

/// Results where the output folder rules out every conversion.
std::vector<conversion_result> refuse_all(const convert_options& options,
                                          const std::string& reason) {
    std::fprintf(stderr, "rxp2k7: %s\n", reason.c_str());
    std::vector<conversion_result> results;
    for (const std::string& input : options.inputs) {
        conversion_result result;
        result.input = input;
        result.output = output_of(options, input).string();
        result.text = reason;
        result.code = exit_code::output_failed;
        results.push_back(std::move(result));
    }
    return results;
}

exit_code run(const convert_options& options) {
    check_outputs(options);
    std::vector<conversion_result> results;
    const std::string blocked = reason_folder_unwritable(options.out_dir);
    if (!blocked.empty()) {
        results = refuse_all(options, blocked);
    } else if (options.json) {
        const stdout_guard guard;
        results = convert_all(options);
    } else {
        results = convert_all(options);
    }
    if (options.json) {
        std::fputs(json_of(results).c_str(), stdout);
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        std::fputs("rxp2k7: cannot write to standard output\n", stderr);
        return exit_code::output_failed;
    }
    interrupts::end_process_if_cancelled();
    return blocked.empty() ? joint_code(results) : exit_code::output_failed;
}

} // namespace

void add_convert(CLI::App& app, exit_code& result) {
    CLI::App* command =
        app.add_subcommand("convert", "Turn recordings into K7 files, one each, named after them.");
    auto options = std::make_shared<convert_options>();
    command->add_option("INPUT", options->inputs, "recordings (*.rxp), or rdtp: and rddp: URIs")
        ->required();
    command->add_option("--out-dir", options->out_dir, "existing directory for the K7 files")
        ->capture_default_str();
    add_whole(*command, "--fragment-size", options->fragment_size,
              "rows after which a fragment is cut");
    add_whole(*command, "--waveform-length", options->waveform_length,
              "waveform samples kept per row");
    command->add_flag("--no-echoes", options->no_echoes, "leave out the grid \"OPP\"");
    command->add_flag("--no-waveforms", options->no_waveforms, "leave out the grid \"Waveforms\"");
    command
        ->add_option_function<std::string>(
            "--time-range",
            [options](const std::string& text) {
                options->time_range = read_time_range("--time-range", text);
            },
            "seconds; fragments that lie wholly inside are skipped")
        ->type_name("MIN:MAX");
    command->add_option("--error-log", options->error_log, "file to which warnings are appended");
    add_whole<std::uint32_t>(*command, "--compress", options->compress,
                             "deflate level of the K7 file, 0 for none", 0, 9);
    command->add_flag("--json", options->json, "print one JSON object instead of the summaries");
    command->callback([options, &result] { result = run(*options); });
}

} // namespace host
