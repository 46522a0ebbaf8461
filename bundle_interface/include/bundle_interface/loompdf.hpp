#pragma once

#include <string>
#include <utility>
#include <vector>

#include "bundle_interface/skein/data_range.hpp"

/// Diagrams on paper.
namespace LoomPDF {

/// One page with a diagram: title, two axes, and any number of series as thin lines, as vector
/// graphics with its fonts embedded. The same input gives the same bytes; no clock goes into them.
class VectorToPDF {
  public:
    /// Least and greatest value of an axis; may be empty.
    using Range = Holdfast::StrongPtr<Skein::DataRange<double>>;

    /// One line of the diagram.
    struct Series {
        std::vector<double> x; ///< positions along the horizontal axis
        std::vector<double> y; ///< as many as x; surplus values of either are left out
        std::string name;      ///< told beside the line where there are several series
        Range range;           ///< least and greatest y; where it is empty, the values are asked
    };

    /// A page of `size` centimetres, width and height, that write2Pdf writes to `file`. Texts are
    /// UTF-8; bytes that are not are shown as replacement characters. `axis_labels` and `ranges`
    /// are those of x and y; an empty range is that of the series. `flag` has no effect.
    VectorToPDF(const std::string& file, const bool& flag, std::string title,
                std::pair<std::string, std::string> axis_labels, std::pair<Range, Range> ranges,
                std::pair<unsigned int, unsigned int> size);

    /// Appends a series. Returns "VectorToPDF::addVector: broken data" and appends nothing where
    /// there are no values or not as many of x as of y; else an empty text.
    std::string addVector(std::vector<double> x, std::vector<double> y, const std::string& name);

    /// Draws the page and writes the file, which replaces an earlier one. Returns an empty text, or
    /// what went wrong; then no incomplete file stays. A line has gaps at values that are NaN or
    /// infinite, and ends at the frame where it leaves it. `flag` has no effect.
    std::string write2Pdf(bool flag) const;

    std::vector<Series> series; ///< drawn in this order

  private:
    std::string file_;
    std::string title_;
    std::pair<std::string, std::string> axis_labels_;
    std::pair<Range, Range> ranges_;
    std::pair<unsigned int, unsigned int> size_;
};

} // namespace LoomPDF
