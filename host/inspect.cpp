#include "command_result.hpp"
#include "commands.hpp"
#include "help.hpp"
#include "input_file.hpp"
#include "inspection_report.hpp"
#include "output_folder.hpp"
#include "packets_line.hpp"
#include "time_range.hpp"

#include "frontend/inspection.hpp"

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

namespace host {

namespace {

struct inspect_options {
    std::string input;
    std::string out_dir = ".";
    std::pair<double, double> time_range{0, 0};
    bool json = false;
};

/// Shows the library's reports, and keeps what it tells at the end.
class inspection_monitor : public Riegl::ProgressMonitor {
  public:
    inspection_monitor(const std::string& input, inspection_result& result)
        : line_(input), result_(result) {}

    void report(const std::string& /*label*/, int current, int /*total*/) override {
        line_.show(static_cast<std::uint64_t>(current < 0 ? 0 : current));
    }
    void inspected(const Riegl::InspectionSummary& summary) override {
        result_.summary = summary;
        result_.summarised = true;
    }

  private:
    packets_line line_;
    inspection_result& result_;
};

exit_code code_of(const inspection_result& result) {
    if (!result.summary.opened) {
        return exit_code::input_unreadable;
    }
    if (result.summary.failed_plots != 0) {
        return exit_code::output_failed;
    }
    return result.text.empty() && result.summary.recording.unread.empty()
               ? exit_code::good
               : exit_code::input_damaged;
}

/// The library makes its files in the current folder; so that becomes the one wished for.
void inspect_from(const std::filesystem::path& input, const inspect_options& options,
                  inspection_result& result) {
    Riegl::Input record;
    record.Progress =
        Holdfast::StrongPtr<Riegl::ProgressMonitor>(new inspection_monitor(input.native(), result));
    record.TimeRange = Holdfast::StrongPtr<Skein::DataRange<double>>(
        new Skein::DataRange<double>(options.time_range.first, options.time_range.second));
    std::filesystem::current_path(options.out_dir);
    const auto start = std::chrono::steady_clock::now();
    result.text = Riegl::inspectFWFs(input, record);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    result.seconds = took.count();
    result.stopped = result.summary.opened && !result.text.empty();
    if (result.text.empty()) {
        result.text = reason_nothing_drawn(result);
    }
    result.code = code_of(result);
}

void inspect_into(const inspect_options& options, inspection_result& result) {
    result.text = reason_folder_unwritable(options.out_dir);
    if (!result.text.empty()) {
        result.code = exit_code::output_failed;
        return;
    }
    result.text = reason_unreadable(options.input);
    if (!result.text.empty()) {
        result.code = exit_code::input_unreadable;
        return;
    }
    inspect_from(is_live_stream(options.input) ? std::filesystem::path(options.input)
                                               : std::filesystem::absolute(options.input),
                 options, result);
}

exit_code run(const inspect_options& options) {
    inspection_result result;
    result.input = options.input;
    result.folder = options.out_dir;
    result.time_range = options.time_range;
    inspect_into(options, result);
    report_failure(result);
    if (options.json) {
        std::fputs(json_of(result).c_str(), stdout);
    } else {
        print_summary(result);
    }
    return flushed(result.code);
}

} // namespace

void add_inspect(CLI::App& app, exit_code& result) {
    CLI::App* command = app.add_subcommand(
        "inspect", "Plot the waveforms of the shots in a time range, a PDF for each shot.");
    auto options = std::make_shared<inspect_options>();
    command->add_option("INPUT", options->input, "recording (*.rxp), or an rdtp: or rddp: URI")
        ->required();
    command
        ->add_option_function<std::string>(
            "--time-range",
            [options](const std::string& text) {
                options->time_range = read_time_range("--time-range", text);
            },
            "seconds; shots at the bounds are plotted, too")
        ->type_name("MIN:MAX")
        ->required();
    command->add_option("--out-dir", options->out_dir, "existing directory for the PDFs")
        ->capture_default_str();
    command->add_flag("--json", options->json, json_help);
    command->footer(examples_text(
        {{"The waveforms of a millisecond",
          "rxp2k7 inspect scan.rxp --time-range 43200.01:43200.011 --out-dir plots"}}));
    command->callback([options, &result] { result = run(*options); });
}

} // namespace host
