#include "assemble_lines.hpp"

#include "scanlib/packet_text.hpp"

#include <cstring>

namespace host {

namespace {

constexpr std::string_view blanks = " \t\v\f\r";
constexpr std::uint32_t largest_number = 0xFFFF; ///< of an id or version in a stream

std::string text_of(scanlib::packet_id id) {
    return scanlib::name_of(id) + " (" + std::to_string(id.id) + "." + std::to_string(id.version) +
           ")";
}

std::string at_column(std::size_t column) {
    return " at column " + std::to_string(column + 1);
}

} // namespace

bool line_source::refill() {
    at_ = 0;
    end_ = std::fread(piece_.data(), 1, piece_.size(), file_);
    return end_ != 0;
}

line_source::outcome line_source::next(std::string_view& line) {
    joined_.clear();
    if (at_ == end_ && !refill()) {
        return std::ferror(file_) != 0 ? outcome::failed : outcome::end;
    }
    do {
        const char* const first = piece_.data() + at_;
        const auto* const stop = static_cast<const char*>(std::memchr(first, '\n', end_ - at_));
        const std::size_t n = stop == nullptr ? end_ - at_ : static_cast<std::size_t>(stop - first);
        at_ += n + (stop == nullptr ? 0 : 1);
        if (joined_.size() + n > longest_line) {
            return outcome::too_long;
        }
        if (stop != nullptr && joined_.empty()) {
            line = {first, n};
            return outcome::line;
        }
        joined_.append(first, n);
        if (stop != nullptr) {
            break;
        }
    } while (refill());
    line = joined_;
    return std::ferror(file_) != 0 ? outcome::failed : outcome::line;
}

/// Reads the pair in the form that the line has, and whether words follow it instead of fields.
scanlib::packet_id line_assembler::read_pair(std::string_view line) {
    const char first = line[line.find_first_not_of(blanks)];
    in_ >> (first >= '0' && first <= '9' ? scanlib::numeric_packets : scanlib::named_packets);
    scanlib::packet_id id;
    in_ >> id;
    if (in_.fail()) {
        throw bad_line("no name and numbers of a packet, like \"laser_shot (10.0)\" or \"10, 0\"");
    }
    as_words_ = scanlib::index_of(id) == scanlib::packet_index::unknown;
    id = scanlib::last_packet(in_);
    if (id.id > largest_number || id.version > largest_number) {
        throw bad_line("the numbers of " + text_of(id) + " are too large for a recording");
    }
    return id;
}

void line_assembler::read_body(scanlib::packet_id id) {
    if (as_words_) {
        scanlib::read_packet_words(in_, body_);
    } else {
        scanlib::read_packet(in_, id, body_);
    }
    if (in_.fail()) {
        throw bad_line("the fields of " + text_of(id) + " cannot be read" +
                       at_column(buffer_.column()));
    }
    if (in_.good() && (in_ >> std::ws).good()) {
        throw bad_line("text behind the last field of " + text_of(id) +
                       at_column(buffer_.column()));
    }
}

void line_assembler::emit(scanlib::packet_id id) {
    try {
        emitter_.put(id, body_);
    } catch (const std::out_of_range&) {
        throw bad_line("the packet " + text_of(id) + " is too long for a recording");
    }
}

void line_assembler::take(std::string_view line) {
    if (line.find_first_not_of(blanks) == std::string_view::npos) {
        return;
    }
    buffer_.show(line);
    in_.clear();
    const scanlib::packet_id id = read_pair(line);
    read_body(id);
    emit(id);
}

} // namespace host
