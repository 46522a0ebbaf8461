#include "grid_rows.hpp"

#include <algorithm>
#include <utility>

namespace host {

namespace {

constexpr std::uint64_t rows_at_once = 8192;

template<class T>
void read_as(const Skein::K7Array& array, std::uint64_t first, std::uint64_t rows,
             std::vector<double>& to) {
    std::vector<T> values(static_cast<std::size_t>(rows * array.width()));
    array.read(first, rows, values.data());
    to.assign(values.begin(), values.end());
}

void read_block(const Skein::K7Array& array, std::uint64_t first, std::uint64_t rows,
                std::vector<double>& to) {
    switch (array.type()) {
    case Skein::K7Type::f32:
        return read_as<float>(array, first, rows, to);
    case Skein::K7Type::u16:
        return read_as<std::uint16_t>(array, first, rows, to);
    case Skein::K7Type::u8:
        return read_as<std::uint8_t>(array, first, rows, to);
    default:
        // Also what is no number type: the reader says so.
        return read_as<double>(array, first, rows, to);
    }
}

} // namespace

grid_rows::grid_rows(const Skein::K7Reader& file, const std::string& grid,
                     std::vector<column> columns)
    : file_(file)
    , chart_(Skein::K7Reader::chartOf(grid))
    , columns_(std::move(columns))
    , blocks_(columns_.size()) {
    if (file.kindOf(grid) == Skein::K7Reader::Kind::none) {
        return;
    }
    const std::string field = chart_ + "/" + columns_.front().name;
    fragments_ = file.fragments(field).numbers;
    for (const std::uint32_t number : fragments_) {
        size_ += file.open(Skein::K7Reader::fragmentPath(field, number)).rows();
    }
}

bool grid_rows::open_next_fragment() {
    arrays_.clear();
    if (next_fragment_ == fragments_.size()) {
        return false;
    }
    const std::uint32_t number = fragments_[next_fragment_++];
    for (const column& c : columns_) {
        const std::string path = Skein::K7Reader::fragmentPath(chart_ + "/" + c.name, number);
        arrays_.push_back(file_.open(path));
        if (arrays_.back().width() != c.width || arrays_.back().rows() != arrays_.front().rows()) {
            throw Skein::K7ReadError(file_.path(), path, "its shape does not fit the grid");
        }
    }
    loaded_ = 0;
    return true;
}

void grid_rows::load() {
    const std::uint64_t rows = std::min(rows_at_once, arrays_.front().rows() - loaded_);
    block_rows_ = 0;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        read_block(arrays_[i], loaded_, rows, blocks_[i]);
    }
    loaded_ += rows;
    block_rows_ = static_cast<std::size_t>(rows);
    row_ = 0;
}

bool grid_rows::next() {
    if (row_ + 1 < block_rows_) {
        ++row_;
        return true;
    }
    while (arrays_.empty() || loaded_ == arrays_.front().rows()) {
        if (!open_next_fragment()) {
            return false;
        }
    }
    load();
    return true;
}

} // namespace host
