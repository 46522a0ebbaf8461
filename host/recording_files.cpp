#include "recording_files.hpp"

#include "input_file.hpp"
#include "terminal.hpp"

#include <cstdio>
#include <filesystem>
#include <vector>

namespace host {

namespace {

using file_list = std::vector<std::filesystem::path>;

constexpr std::size_t most_unread_told = 5;

void append(std::string& list, const std::filesystem::path& name) {
    list += (list.empty() ? "" : ", ") + name.string();
}

/// The prefixes and the main file; of continuations the first and the last.
std::string file_line(const Riegl::RecordingFiles& files) {
    std::string line;
    for (const auto& name : files.prefixes) {
        append(line, name);
    }
    for (std::size_t i = 0; i < files.data.size() && i < 2; ++i) {
        append(line, files.data[i]);
    }
    return files.data.size() > 2 ? line + " to " + files.data.back().string() : line;
}

void add_names(json_array& out, const file_list& names) {
    for (const auto& name : names) {
        out.add(json_text(name.string()));
    }
}

} // namespace

void tell_unread(const std::string& input, const Riegl::RecordingFiles& files) {
    const file_list& unread = files.unread;
    for (std::size_t i = 0; i < unread.size() && i < most_unread_told; ++i) {
        const std::string reason = reason_unreadable(unread[i].string());
        complain("%s: \"%s\" belongs to the recording but was left out: %s", input.c_str(),
                 unread[i].c_str(),
                 reason.empty() ? "it follows a file that could not be read" : reason.c_str());
    }
    if (unread.size() > most_unread_told) {
        complain("%s: %zu more files were left out", input.c_str(),
                 unread.size() - most_unread_told);
    }
}

void print_files(const Riegl::RecordingFiles& files) {
    if (files.prefixes.size() + files.data.size() > 1) {
        std::printf("  files      %s\n", file_line(files).c_str());
    }
    if (!files.override_file.empty()) {
        std::printf("  override   %s\n", files.override_file.c_str());
    }
}

json_object& add_files(json_object& out, const Riegl::RecordingFiles& files) {
    json_array read;
    add_names(read, files.prefixes);
    add_names(read, files.data);
    json_array unread;
    add_names(unread, files.unread);
    return out.raw("files", read.str())
        .raw("override",
             files.override_file.empty() ? "null" : json_text(files.override_file.string()))
        .raw("unread_files", unread.str());
}

} // namespace host
