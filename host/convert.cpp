#include "command_result.hpp"
#include "commands.hpp"
#include "conversion_jobs.hpp"
#include "conversion_report.hpp"
#include "conversion_run.hpp"
#include "help.hpp"
#include "input_registry.hpp"
#include "interrupts.hpp"
#include "numbers.hpp"
#include "output_folder.hpp"
#include "packets_line.hpp"
#include "stdout_guard.hpp"
#include "terminal.hpp"
#include "time_range.hpp"

#include "scanlib/file_set.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace host {

namespace {

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
        const auto output = options.output_of(input);
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

/// Converts one input after the other in this process.
std::vector<conversion_outcome> convert_here(const convert_options& options) {
    end_request end;
    std::vector<conversion_outcome> outcomes;
    const interrupts watch([&](int signal) { end.stop(signal); },
                           [&](int signal) { end.cancel(signal); });
    for (const std::string& input : options.inputs) {
        if (watch.count() != 0) {
            const auto left = not_converted(input, options.output_of(input).string(), watch.last());
            report_failure(left);
            outcomes.push_back(outcome_of(left));
            continue;
        }
        packets_line shown(input);
        const conversion_result result = convert_one(options, input, shown, end);
        report_failure(result);
        if (!options.json) {
            print_summary(result);
        }
        outcomes.push_back(outcome_of(result));
    }
    return outcomes;
}

std::vector<conversion_outcome> convert_all(const convert_options& options) {
    if (options.jobs > 1 && options.inputs.size() > 1) {
        return convert_in_processes(options);
    }
    if (options.json) {
        const stdout_guard guard;
        return convert_here(options);
    }
    return convert_here(options);
}

/// One input's code is the program's; of several, any failure makes it "some failed".
exit_code joint_code(const std::vector<conversion_outcome>& results) {
    if (results.size() == 1) {
        return results.front().code;
    }
    const bool all_good = std::all_of(results.begin(), results.end(),
                                      [](const auto& r) { return r.code == exit_code::good; });
    return all_good ? exit_code::good : exit_code::some_inputs_failed;
}

/// Ends the process by the signal that kept an input from being converted, or that cancelled one.
void end_as_signalled(const std::vector<conversion_outcome>& results) {
    for (const conversion_outcome& r : results) {
        if (r.ended_by != 0) {
            end_process_by(r.ended_by);
        }
    }
}

/// Results where the output folder rules out every conversion.
std::vector<conversion_outcome> refuse_all(const convert_options& options,
                                           const std::string& reason) {
    complain("%s", reason.c_str());
    std::vector<conversion_outcome> results;
    for (const std::string& input : options.inputs) {
        conversion_result result;
        result.input = input;
        result.output = options.output_of(input).string();
        result.text = reason;
        result.code = exit_code::output_failed;
        results.push_back(outcome_of(result));
    }
    return results;
}

exit_code run(const convert_options& options) {
    check_outputs(options);
    std::vector<conversion_outcome> results;
    const std::string blocked = reason_folder_unwritable(options.out_dir);
    if (!blocked.empty()) {
        results = refuse_all(options, blocked);
    } else {
        results = convert_all(options);
    }
    if (options.json) {
        std::fputs(json_of(results).c_str(), stdout);
    }
    const exit_code code =
        flushed(blocked.empty() ? joint_code(results) : exit_code::output_failed);
    end_as_signalled(results);
    return code;
}

/// `--jobs N`; 0 and "auto" are the number of processors.
void add_jobs(CLI::App& command, std::uint32_t& jobs) {
    constexpr std::uint64_t most = 1024;
    command
        .add_option_function<std::string>(
            "--jobs",
            [&jobs](const std::string& text) {
                const std::uint64_t n = text == "auto" ? 0 : parse_whole("--jobs", text, 0, most);
                jobs = n != 0 ? static_cast<std::uint32_t>(n)
                              : std::max(1U, std::thread::hardware_concurrency());
            },
            "convert so many inputs at a time, each in a process of its own; 0 or auto for one a "
            "processor. Each takes up to 256 MiB of memory")
        ->default_str("1")
        ->type_name("NUMBER");
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
    add_jobs(*command, options->jobs);
    command->add_flag("--skip-done", options->skip_done,
                      "leave out inputs whose K7 file is whole, written by this version, and newer "
                      "than every file of the recording. Other options are not compared: give "
                      "other ones another directory");
    add_whole<std::uint32_t>(*command, "--compress", options->compress,
                             "deflate level of the K7 file, 0 for none", 0, 9);
    command->add_flag("--json", options->json, json_help);
    command->footer(
        examples_text({{"All recordings of a folder, as many at a time as there are processors; "
                        "again, what is missing",
                        "rxp2k7 convert *.rxp --out-dir out --jobs auto --skip-done"},
                       {"The summaries for another program",
                        "rxp2k7 convert *.rxp --out-dir out --json > summaries.json"},
                       {"A file as small as it gets", "rxp2k7 convert scan.rxp --compress 9"},
                       {"Straight from an instrument, until Ctrl-C",
                        "rxp2k7 convert rdtp://192.168.0.1/current"}}));
    command->callback([options, &result] { result = run(*options); });
}

} // namespace host
