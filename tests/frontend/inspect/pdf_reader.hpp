#pragma once

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

namespace frontend_test {

inline std::string bytes_of(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    return (std::ostringstream() << in.rdbuf()).str();
}

/// What a tool prints about a PDF file; its complaints included.
inline std::string ask(const std::string& tool, const std::filesystem::path& file,
                       const std::string& further = "") {
    const auto close = [](std::FILE* f) { pclose(f); };
    const std::string command = tool + " '" + file.string() + "' " + further + " 2>&1";
    const std::unique_ptr<std::FILE, decltype(close)> pipe(popen(command.c_str(), "r"), close);
    std::string text;
    std::array<char, 4096> part{};
    while (pipe != nullptr) {
        const std::size_t n = std::fread(part.data(), 1, part.size(), pipe.get());
        if (n == 0) {
            break;
        }
        text.append(part.data(), n);
    }
    return text;
}

/// The texts on the page.
inline std::string texts_of(const std::filesystem::path& file) {
    return ask("pdftotext -layout", file, "-");
}

} // namespace frontend_test
