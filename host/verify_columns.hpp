#pragma once

#include "bundle_interface/k7_reader.hpp"
#include "verify_findings.hpp"
#include "verify_layout.hpp"

#include <string>
#include <vector>

namespace host {

/// The fragments that a column of a grid must give, by rising number.
struct column_source {
    const k7_column* column;
    std::vector<Skein::K7Piece> fragments; ///< only those with values
    std::uint64_t rows = 0;                ///< of all of them
    std::uint64_t widest = 0;              ///< values in a row
};

/// Holds the columns that a grid offers as a whole against its fragments: extent, type, source of
/// each row, attributes and dimensions. No values are read. Where a column is `required`, one that
/// is missing is a finding.
void verify_columns(const Skein::K7Reader& file, const std::string& grid,
                    const std::vector<column_source>& sources, bool required,
                    k7_findings& findings);

} // namespace host
