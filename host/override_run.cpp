#include "override_run.hpp"

#include "input_file.hpp"

#include "scanlib/connection.hpp"

#include <exception>
#include <fstream>
#include <string_view>
#include <vector>

namespace host {

namespace {

constexpr std::uint64_t piece_bytes = std::uint64_t{1} << 18;

/// The file up to one byte more than an override text may have.
std::string text_of(const std::string& name) {
    std::ifstream in(name, std::ios::binary);
    std::string text(scanlib::longest_override_text + 1, '\0');
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(in.gcount()));
    return text;
}

/// The parser names no file, but the line: "<unspecified file>(2): ...".
std::string in_words(std::string failure) {
    constexpr std::string_view nameless = "<unspecified file>(";
    if (failure.starts_with(nameless)) {
        const std::size_t end = failure.find("):");
        failure = "line " + failure.substr(nameless.size(), end - nameless.size()) +
                  (end == std::string::npos ? "" : failure.substr(end + 1));
    }
    return failure;
}

} // namespace

std::unique_ptr<override_file> read_override_file(const std::string& name, std::string& reason) {
    reason = reason_unreadable(name);
    if (!reason.empty()) {
        return nullptr;
    }
    auto file = std::make_unique<override_file>();
    try {
        file->text = text_of(name);
        file->entries = scanlib::parse_override_text(file->text);
    } catch (const std::exception& e) {
        reason = "\"" + name + "\" is no override text: " + in_words(e.what());
        return nullptr;
    }
    return file;
}

std::string read_overridden(const std::string& input, const override_file& file,
                            override_findings& findings, const bytes_taker& take) {
    std::shared_ptr<scanlib::basic_rconnection> connection;
    const auto failure = [&](const std::exception& e) {
        return "cannot " + std::string(connection ? "correct" : "read") + " \"" + input +
               "\": " + e.what();
    };
    try {
        connection.reset(scanlib::basic_rconnection::create(input, "", file.text));
        connection->listen_to_overrides(&findings);
        connection->open();
    } catch (const std::exception& e) {
        return failure(e);
    }
    std::vector<char> piece(piece_bytes);
    std::uint64_t n = 0;
    do {
        try {
            n = connection->read(piece.data(), piece.size());
        } catch (const std::exception& e) {
            return failure(e);
        }
        take(piece.data(), n);
    } while (n != 0);
    return {};
}

} // namespace host
