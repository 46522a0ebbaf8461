#include "inspect_fwf.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <vector>

#include "bundle_interface/loompdf.hpp"

namespace Riegl {

namespace {

/// Told by its number, whatever its name is.
constexpr std::uint64_t reference_channel = 3;

constexpr double least_amplitude = 0.0;
constexpr double greatest_amplitude = 2600.0;
constexpr std::pair<unsigned int, unsigned int> page_size_cm{30, 8};
constexpr double nanoseconds = 1e9;

/// The shortest text that reads back exactly.
std::string shortest(double value) {
    char text[32];
    const auto end = std::to_chars(std::begin(text), std::end(text), value).ptr;
    return {std::begin(text), end};
}

} // namespace

InspectFWF::InspectFWF(const Input& input, const std::filesystem::path& file,
                       InspectionSummary& summary)
    : scanlib::wave(true, false), input_(input), file_(file), summary_(&summary) {}

void InspectFWF::count_shot(const scanlib::wave_block& block) {
    if (std::isnan(time)) {
        return;
    }
    ++summary_->shots;
    summary_->first_time = std::fmin(summary_->first_time, time);
    summary_->last_time = std::fmax(summary_->last_time, time);
    summary_->records += static_cast<std::uint64_t>(
        std::count_if(block.records.begin(), block.records.end(),
                      [](const auto& r) { return r.channel != reference_channel; }));
}

void InspectFWF::on_wave(scanlib::wave_block& block) {
    count_shot(block);
    if (!input_.TimeRange.available() || std::isnan(time) || time < input_.TimeRange->min ||
        time > input_.TimeRange->max) {
        return;
    }
    ++summary_->shots_in_range;
    bool written = false;
    for (const scanlib::wave_record& r : block.records) {
        if (r.channel != reference_channel) {
            written = plot(r) || written;
        }
    }
    summary_->files += written ? 1 : 0;
}

/// Tells whether the file was written.
bool InspectFWF::plot(const scanlib::wave_record& record) {
    using Range = LoomPDF::VectorToPDF::Range;
    const Range amplitudes(new Skein::DataRange<double>(least_amplitude, greatest_amplitude));
    const std::string t = shortest(time);
    LoomPDF::VectorToPDF page("GPSTime[s]" + t + ".pdf", false,
                              "GSPTime[s]: " + t +
                                  " dt[ns]: " + shortest(nanoseconds * sampling_time),
                              {"Bin [-]", "Amplitude dB"}, {Range(), amplitudes}, page_size_cm);
    std::vector<double> bins(record.samples.size());
    for (std::size_t i = 0; i < bins.size(); ++i) {
        bins[i] = static_cast<double>(i);
    }
    // Without samples the page shows its axes only.
    const std::string no_series = page.addVector(
        std::move(bins), std::vector<double>(record.samples.begin(), record.samples.end()), "Nr#");
    const std::string failure = page.write2Pdf(false);
    if (!failure.empty()) {
        if (summary_->failed_plots++ == 0) {
            summary_->failure = failure;
        }
        return false;
    }
    ++summary_->plots;
    summary_->empty_plots += no_series.empty() ? 0 : 1;
    summary_->compressed_plots += no_series.empty() && record.is_compressed != 0 ? 1 : 0;
    return true;
}

} // namespace Riegl
