#pragma once

#include <string>
#include <utility>

#include "bundle_interface/loompdf.hpp"

namespace LoomPDF {

/// What a page shows.
struct PageContent {
    const std::string& title;
    const std::pair<std::string, std::string>& axis_labels;
    const std::pair<VectorToPDF::Range, VectorToPDF::Range>& ranges;
    const std::vector<VectorToPDF::Series>& series;
};

/// Draws a page of that many points; the bytes of the PDF. Throws std::runtime_error that says why
/// it cannot be drawn.
std::string draw_page(double width, double height, const PageContent& content);

} // namespace LoomPDF
