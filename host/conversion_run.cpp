#include "conversion_run.hpp"

#include "done_check.hpp"
#include "input_file.hpp"
#include "printable.hpp"

#include "frontend/conversion.hpp"

#include <chrono>
#include <cstdio>
#include <exception>
#include <memory>
#include <new>

namespace host {

namespace {

/// Shows the library's reports, and keeps its summary.
class monitor : public Riegl::ProgressMonitor {
  public:
    monitor(progress_view& shown, end_request& end, conversion_result& result)
        : shown_(shown), end_(end), result_(result) {}

    void report(const std::string& /*label*/, int current, int total) override {
        // The last report, 1 of 1, is about the writing of the rest.
        if (total != 1) {
            shown_.show(static_cast<std::uint64_t>(current < 0 ? 0 : current));
        }
    }
    void summarise(const Riegl::ConversionSummary& summary) override {
        result_.summary = summary;
        result_.summarised = true;
    }
    void connecting(const std::shared_ptr<Riegl::StreamControl>& stream) override {
        end_.pass_on_to(stream);
    }

  private:
    progress_view& shown_;
    end_request& end_;
    conversion_result& result_;
};

/// Sends the library's messages to standard error without tearing the bar.
class console_lines {
  public:
    explicit console_lines(progress_view& shown) {
        Holdfast::Console::setSink([&shown](const std::string& message) {
            shown.clear();
            std::fprintf(stderr, "%s\n", printable(message).c_str());
        });
    }
    console_lines(const console_lines&) = delete;
    console_lines& operator=(const console_lines&) = delete;
    ~console_lines() { Holdfast::Console::setSink({}); }
};

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

void convert_readable(const convert_options& options, progress_view& shown, end_request& end,
                      conversion_result& result) {
    Riegl::Input record = input_record(options);
    record.Progress = Holdfast::StrongPtr<Riegl::ProgressMonitor>(new monitor(shown, end, result));
    const console_lines lines(shown);
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
    const bool cut_short =
        result.summary.stopped || (result.summary.interrupted && end.cancelled());
    result.ended_by = cut_short ? end.signal() : 0;
    shown.clear();
}

/// Whether the output need not be made again; then the result tells of it.
bool skip(const convert_options& options, conversion_result& result) {
    if (!options.skip_done) {
        return false;
    }
    const done_output found = find_done(result.input, result.output);
    result.skipped = found.done;
    result.summary.shots = found.counts.shots;
    result.summary.echoes = found.counts.echoes;
    result.summary.waveforms = found.counts.waveforms;
    result.summary.fragments = found.counts.fragments;
    result.summary.bytes_out = found.bytes;
    return found.done;
}

} // namespace

conversion_result convert_one(const convert_options& options, const std::string& input,
                              progress_view& shown, end_request& end) {
    conversion_result result;
    result.input = input;
    result.output = options.output_of(input).string();
    result.text = reason_unreadable(input);
    if (!result.text.empty()) {
        result.code = exit_code::input_unreadable;
        return result;
    }
    if (skip(options, result)) {
        return result;
    }
    convert_readable(options, shown, end, result);
    if (result.code == exit_code::input_damaged && !result.summary.stopped) {
        keep_from_counting_as_done(input, result.output);
    }
    return result;
}

} // namespace host
