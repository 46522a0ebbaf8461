#include "verify_columns.hpp"

#include <algorithm>
#include <utility>

namespace host {

namespace {

using Skein::K7Column;
using Skein::K7Piece;
using Skein::K7Reader;
using Skein::K7ReadError;

/// What is wrong with one column; the first such thing is told.
struct column_fault {
    std::string text;
};

void require(bool good, const char* text) {
    if (!good) {
        throw column_fault{text};
    }
}

/// The pieces of a column with those of its parts in their place.
std::vector<K7Piece> fragments_of(const K7Reader& file, const std::string& grid,
                                  const K7Column& column) {
    std::vector<K7Piece> fragments;
    for (const K7Piece& piece : column.pieces) {
        if (!piece.source.starts_with(grid + "/parts/")) {
            fragments.push_back(piece);
            continue;
        }
        const K7Column part = file.column(piece.source);
        require(part.type == column.type, "a part of it is of another type");
        require(part.shape.size() == column.shape.size() && part.shape.front() == piece.rows &&
                    (part.shape.size() == 1 || part.shape.back() == piece.width),
                "a part of it has another extent than its piece");
        for (K7Piece fragment : part.pieces) {
            fragment.first_row += piece.first_row;
            fragments.push_back(std::move(fragment));
        }
        require(fragments.size() <= K7Reader::most_members, "it has too many pieces");
    }
    return fragments;
}

void check_extent(const K7Column& column, const column_source& source) {
    require(column.type == source.column->type, "it is of another type than its fragments");
    require(column.shape.size() == (source.column->width == 1 ? 1U : 2U),
            "it has another number of dimensions than its fragments");
    if (column.shape.front() != source.rows) {
        throw column_fault{std::to_string(column.shape.front()) + " rows, but its fragments have " +
                           std::to_string(source.rows)};
    }
    const std::uint64_t width =
        source.column->width == any_width ? source.widest : source.column->width;
    if (column.shape.size() == 2 && column.shape.back() != width) {
        throw column_fault{std::to_string(column.shape.back()) + " values in a row, not " +
                           std::to_string(width)};
    }
}

void check_pieces(const std::vector<K7Piece>& pieces, const std::vector<K7Piece>& fragments) {
    const auto same = [](const K7Piece& a, const K7Piece& b) {
        return a.source == b.source && a.first_row == b.first_row && a.rows == b.rows &&
               a.width == b.width;
    };
    const auto [piece, fragment] =
        std::mismatch(pieces.begin(), pieces.end(), fragments.begin(), fragments.end(), same);
    if (fragment != fragments.end()) {
        throw column_fault{"its rows from " + std::to_string(fragment->first_row) +
                           " on are not those of " + fragment->source};
    }
    require(piece == pieces.end(), "it has more pieces than there are fragments");
}

void check_attributes(const K7Reader& file, const std::string& path, const column_source& source) {
    const auto units = file.attribute(path, "units");
    require(units && units->text == source.column->units,
            "attribute \"units\" is not that of its fragments");
    const auto long_name = file.attribute(path, "long_name");
    require(long_name && !long_name->text.empty(), "attribute \"long_name\" is missing");
    require(file.attribute(path, "DIMENSION_LIST").has_value(), "its dimensions have no scales");
}

} // namespace

void verify_columns(const K7Reader& file, const std::string& grid,
                    const std::vector<column_source>& sources, bool required,
                    k7_findings& findings) {
    for (const column_source& source : sources) {
        const std::string path = std::string(grid).append("/").append(source.column->name);
        try {
            if (file.kindOf(path) == K7Reader::Kind::none) {
                require(!required, "the column over all fragments is missing");
                continue;
            }
            const K7Column column = file.column(path);
            check_extent(column, source);
            check_pieces(fragments_of(file, grid, column), source.fragments);
            check_attributes(file, path, source);
        } catch (const column_fault& fault) {
            findings.add(path, fault.text);
        } catch (const K7ReadError& e) {
            findings.add(e.object(), e.cause());
        }
    }
}

} // namespace host
