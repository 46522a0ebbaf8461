#include "scanlib/file_connection.hpp"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <ios>
#include <limits>
#include <stdexcept>
#include <system_error>

#include "scanlib/override_text.hpp"
#include "source_file.hpp"
#include "uri.hpp"

namespace scanlib {

namespace {

constexpr std::streamsize file_buffer_bytes = 0x40000;

/// Up to `n` bytes of a file; for n above 0, none is its end.
std::uint64_t read_from(std::filebuf& file, char* dst, std::uint64_t n) {
    constexpr auto most = static_cast<std::uint64_t>(std::numeric_limits<std::streamsize>::max());
    try {
        const std::streamsize k = file.sgetn(dst, static_cast<std::streamsize>(std::min(n, most)));
        return k < 0 ? 0 : static_cast<std::uint64_t>(k);
    } catch (const std::ios_base::failure&) {
        throw std::runtime_error("file_rconnection::more_input: Error reading from file!");
    }
}

/// Opens a file beside the main file, if it is there. Its name goes to `unread` where that fails.
bool open_beside(std::filebuf& file, const std::string& name, std::vector<std::string>& unread) {
    if (!is_file(name)) {
        return false;
    }
    if (file.open(name, std::ios::in | std::ios::binary) == nullptr) {
        unread.push_back(name);
        return false;
    }
    return true;
}

/// The text of an open override file.
std::string text_of(std::filebuf& file, const std::string& name) {
    std::string text;
    std::array<char, 8192> piece;
    try {
        while (const std::streamsize k = file.sgetn(piece.data(), piece.size())) {
            text.append(piece.data(), static_cast<std::size_t>(k));
            if (text.size() > longest_override_text) {
                throw std::runtime_error("Override file \"" + name + "\" is larger than " +
                                         std::to_string(longest_override_text) + " bytes!");
            }
        }
    } catch (const std::ios_base::failure&) {
        throw std::runtime_error("Could not read override file \"" + name + "\"!");
    }
    return text;
}

} // namespace

/// Private part of a file read connection.
struct file_rconnection::files {
    explicit files(std::string path) : names(std::move(path)) {}

    void find_override(std::string& pxp);
    void open_prefixes();
    std::uint64_t open_main();
    void measure(std::uint64_t main_size);
    std::uint64_t read_prefix(char* dst, std::uint64_t n);
    bool open_next();
    void open_data(std::uint32_t number);

    file_set_names names;
    std::array<std::filebuf, 2> prefixes; ///< the common one, the own one
    source_file main;                     ///< the main file or the continuation that is open
    std::uint32_t number = 1;             ///< which file of the set that is; 1 is the main file
    std::vector<std::uint64_t> sizes;     ///< of the files of the set on opening
    file_set_report report;
};

void file_rconnection::files::find_override(std::string& pxp) {
    if (!pxp.empty()) {
        return;
    }
    for (const std::string& name : {names.first_override(), names.second_override()}) {
        std::filebuf file;
        if (open_beside(file, name, report.unread)) {
            pxp = text_of(file, name);
            report.override_file = name;
            return;
        }
    }
}

void file_rconnection::files::open_prefixes() {
    const std::array<std::string, 2> called{names.common_prefix(), names.own_prefix()};
    for (std::size_t i = 0; i < called.size(); ++i) {
        if (open_beside(prefixes[i], called[i], report.unread)) {
            report.files.prefixes.push_back({called[i], file_size_of(called[i])});
        }
    }
}

/// Returns its size.
std::uint64_t file_rconnection::files::open_main() {
    const std::string& path = names.main_file();
    std::error_code unknown;
    // A folder opens, but nothing can be read from it.
    if (std::filesystem::is_directory(path, unknown) || !main.open(path)) {
        throw std::runtime_error("Could not open \"" + path + "\" for reading!");
    }
    return main.size();
}

void file_rconnection::files::measure(std::uint64_t main_size) {
    report.files.data = data_files(names);
    report.files.data.front().size = main_size;
    for (const file_part& part : report.files.data) {
        sizes.push_back(part.size);
    }
}

std::uint64_t file_rconnection::files::read_prefix(char* dst, std::uint64_t n) {
    for (std::filebuf& prefix : prefixes) {
        if (prefix.is_open()) {
            if (const std::uint64_t k = read_from(prefix, dst, n)) {
                return k;
            }
            prefix.close();
        }
    }
    return 0;
}

/// Goes on to the next file, one that appeared since the opening, too.
bool file_rconnection::files::open_next() {
    main.close();
    const std::string name = names.continuation(number);
    std::vector<file_part>& data = report.files.data;
    if (!is_file(name) || !main.open(name)) {
        // What was found on opening, or is there now, will not be read.
        for (std::size_t i = number; i < data.size(); ++i) {
            report.unread.push_back(data[i].name);
        }
        if (number >= data.size() && is_file(name)) {
            report.unread.push_back(name);
        }
        data.resize(std::min<std::size_t>(data.size(), number));
        return false;
    }
    if (number >= data.size()) {
        data.push_back({name, file_size_of(name)});
    }
    ++number;
    return true;
}

void file_rconnection::files::open_data(std::uint32_t wanted) {
    if (wanted == number && main.is_open()) {
        return;
    }
    main.close();
    main.open(names.continuation(wanted - 1));
    number = wanted;
}

file_rconnection::file_rconnection(const std::string& uri, const std::string&,
                                   const std::string& pxp)
    : basic_rconnection(pxp), files_(std::make_unique<files>(path_of_file_uri(uri))) {
    id_ = files_->names.stem();
    files_->find_override(pxp_);
    files_->open_prefixes();
    files_->measure(files_->open_main());
    for (const std::uint64_t size : files_->sizes) {
        size_ += size;
    }
}

file_rconnection::~file_rconnection() = default;

void file_rconnection::stop() {
    cancelled_ = true;
}
void file_rconnection::cancel() {
    cancelled_ = true;
}

const file_set_report& file_rconnection::report() const noexcept {
    return files_->report;
}

std::uint64_t file_rconnection::more_input(char* dst, std::uint64_t n) {
    if (cancelled_) {
        throw std::runtime_error("file_rconnection::more_input: Operation canceled!");
    }
    gcount_ = 0;
    if (n == 0) {
        return 0; // which must not look like the end of a file
    }
    if (const std::uint64_t k = files_->read_prefix(dst, n)) {
        return k;
    }
    if (!files_->main.is_open()) {
        throw std::runtime_error("file_rconnection::more_input: Error reading from file!");
    }
    do {
        if (const std::uint64_t k = files_->main.read(dst, n)) {
            delivered_from(files_->main.place());
            return k;
        }
    } while (files_->open_next());
    end_of_input_ = true;
    return 0;
}

void file_rconnection::seek(std::uint64_t position) {
    if (position > size_) {
        throw std::runtime_error("trying to seek beyond eof");
    }
    const std::vector<std::uint64_t>& sizes = files_->sizes;
    std::uint64_t base = 0;
    std::uint32_t file = 1;
    for (; file < sizes.size() && position > base + sizes[file - 1]; ++file) {
        base += sizes[file - 1];
    }
    files_->open_data(file);
    files_->main.seek(position - base);
    position_ = position;
}

const file_set_report* report_of(const basic_rconnection& connection) noexcept {
    const auto* files = dynamic_cast<const file_rconnection*>(&connection);
    return files == nullptr ? nullptr : &files->report();
}

void note_unread_files(basic_rconnection& connection, loss_log& losses) {
    const file_set_report* report = report_of(connection);
    const std::uint64_t noted = losses.count(loss::unread_file);
    if (report != nullptr && report->unread.size() > noted) {
        losses.at(connection.position());
        losses.note(loss::unread_file, report->unread.size() - noted);
    }
}

struct file_wconnection::file {
    std::unique_ptr<char[]> memory{new char[file_buffer_bytes]};
    std::filebuf buffer;
};

file_wconnection::file_wconnection(const std::string& uri) : file_(std::make_unique<file>()) {
    const std::string path = path_of_file_uri(uri);
    file_->buffer.pubsetbuf(file_->memory.get(), file_buffer_bytes);
    if (file_->buffer.open(path, std::ios::out | std::ios::trunc | std::ios::binary) == nullptr) {
        throw std::runtime_error("Could not open \"" + path + "\" for writing!");
    }
}

file_wconnection::~file_wconnection() = default;

std::int64_t file_wconnection::write(const char* data, std::int64_t n) {
    if (!file_->buffer.is_open() || file_->buffer.sputn(data, n) != n) {
        throw std::runtime_error("Error writing to file!");
    }
    return n;
}

void file_wconnection::finish() {
    if (file_->buffer.is_open() && file_->buffer.close() == nullptr) {
        throw std::runtime_error("Error writing to file!");
    }
}

} // namespace scanlib
