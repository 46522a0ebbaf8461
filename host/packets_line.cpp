#include "packets_line.hpp"

#include "input_file.hpp"

#include <filesystem>

namespace host {

progress_scale packets_of(const std::string& input) {
    return {"packets", estimate_packets(input), bytes_of_input(input)};
}

void packets_line::show(std::uint64_t packets) {
    if (!line_) {
        line_.emplace(std::filesystem::path(input_).filename().string(), packets_of(input_));
    }
    line_->show(packets);
}

void packets_line::clear() {
    if (line_) {
        line_->clear();
    }
}

} // namespace host
