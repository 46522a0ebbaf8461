#include "grid_rows.hpp"

#include <utility>

namespace host {

namespace {

constexpr std::uint64_t rows_at_once = 8192;

template<class T>
void read_as(const grid_blocks& source, std::size_t which, std::size_t values,
             std::vector<double>& to) {
    std::vector<T> own(values);
    source.read(which, own.data());
    to.assign(own.begin(), own.end());
}

void read_block(const grid_blocks& source, std::size_t which, std::size_t values,
                std::vector<double>& to) {
    switch (source.type(which)) {
    case Skein::K7Type::f32:
        return read_as<float>(source, which, values, to);
    case Skein::K7Type::u16:
        return read_as<std::uint16_t>(source, which, values, to);
    case Skein::K7Type::u8:
        return read_as<std::uint8_t>(source, which, values, to);
    default:
        // Also what is no number type: the reader says so.
        to.resize(values);
        source.read(which, to.data());
    }
}

} // namespace

grid_rows::grid_rows(const Skein::K7Reader& file, const std::string& grid,
                     std::vector<grid_column> columns)
    : source_(file, grid, std::move(columns)), blocks_(source_.columns().size()) {}

bool grid_rows::next() {
    if (row_ + 1 < block_rows_) {
        ++row_;
        return true;
    }
    row_ = 0;
    block_rows_ = 0; // until they are read
    const auto rows = static_cast<std::size_t>(source_.next(rows_at_once));
    for (std::size_t i = 0; rows != 0 && i < blocks_.size(); ++i) {
        read_block(source_, i, rows * width(i), blocks_[i]);
    }
    block_rows_ = rows;
    return rows != 0;
}

} // namespace host
