#include "grid_blocks.hpp"

#include <algorithm>
#include <utility>

namespace host {

grid_blocks::grid_blocks(const Skein::K7Reader& file, const std::string& grid,
                         std::vector<grid_column> columns)
    : file_(file), chart_(Skein::K7Reader::chartOf(grid)), columns_(std::move(columns)) {
    if (file.kindOf(grid) == Skein::K7Reader::Kind::none) {
        return;
    }
    for (const grid_column& c : columns_) {
        const std::string field = chart_ + "/" + c.name;
        const std::vector<std::uint32_t> numbers = file.fragments(field).numbers;
        if (&c == &columns_.front()) {
            for (const std::uint32_t number : numbers) {
                size_ += file.open(Skein::K7Reader::fragmentPath(field, number)).rows();
            }
        }
        fragments_.insert(fragments_.end(), numbers.begin(), numbers.end());
    }
    std::sort(fragments_.begin(), fragments_.end());
    fragments_.erase(std::unique(fragments_.begin(), fragments_.end()), fragments_.end());
}

bool grid_blocks::open_next_fragment() {
    arrays_.clear();
    if (next_fragment_ == fragments_.size()) {
        return false;
    }
    const std::uint32_t number = fragments_[next_fragment_++];
    std::vector<Skein::K7Array> opened;
    for (const grid_column& c : columns_) {
        const std::string path = Skein::K7Reader::fragmentPath(chart_ + "/" + c.name, number);
        opened.push_back(file_.open(path));
        if (opened.back().width() != c.width || opened.back().rows() != opened.front().rows()) {
            throw Skein::K7ReadError(file_.path(), path, "its shape does not fit the grid");
        }
    }
    arrays_ = std::move(opened);
    first_ = 0;
    return true;
}

std::uint64_t grid_blocks::next(std::uint64_t most) {
    first_ += std::exchange(count_, 0);
    while (arrays_.empty() || first_ == arrays_.front().rows()) {
        if (!open_next_fragment()) {
            return 0;
        }
    }
    return count_ = std::min(most, arrays_.front().rows() - first_);
}

} // namespace host
