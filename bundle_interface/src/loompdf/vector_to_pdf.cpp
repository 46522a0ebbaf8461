#include "bundle_interface/loompdf.hpp"

#include <algorithm>
#include <exception>

#include "axis.hpp"
#include "bundle_interface/whole_file.hpp"
#include "page.hpp"

namespace LoomPDF {

namespace {

constexpr double points_per_cm = 72 / 2.54;

/// Readers of PDF take no larger page.
constexpr unsigned int largest_page = 500;

} // namespace

VectorToPDF::VectorToPDF(const std::string& file, const bool& /*flag*/, std::string title,
                         std::pair<std::string, std::string> axis_labels,
                         std::pair<Range, Range> ranges, std::pair<unsigned int, unsigned int> size)
    : file_(file)
    , title_(std::move(title))
    , axis_labels_(std::move(axis_labels))
    , ranges_(std::move(ranges))
    , size_(size) {}

std::string VectorToPDF::addVector(std::vector<double> x, std::vector<double> y,
                                   const std::string& name) {
    if (x.empty() || x.size() != y.size()) {
        return "VectorToPDF::addVector: broken data";
    }
    BoundsFinder finder;
    std::for_each(y.begin(), y.end(), [&](double value) { finder.take(value); });
    Range range;
    if (finder.found()) {
        range = Range(new Skein::DataRange<double>(finder.found()->min, finder.found()->max));
    }
    series.push_back({std::move(x), std::move(y), name, std::move(range)});
    return {};
}

std::string VectorToPDF::write2Pdf(bool /*flag*/) const {
    const auto failed = [&](const std::string& reason) {
        return "VectorToPDF::write2Pdf: cannot write \"" + file_ + "\": " + reason;
    };
    if (std::max(size_.first, size_.second) > largest_page) {
        return failed("the page is wider or higher than " + std::to_string(largest_page) + " cm");
    }
    try {
        const std::string bytes =
            draw_page(size_.first * points_per_cm, size_.second * points_per_cm,
                      {title_, axis_labels_, ranges_, series});
        const std::string reason = Holdfast::writeWholeFile(file_, bytes);
        return reason.empty() ? reason : failed(reason);
    } catch (const std::exception& e) {
        return failed(e.what());
    }
}

} // namespace LoomPDF
