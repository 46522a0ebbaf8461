#include "assemble_lines.hpp"
#include "commands.hpp"
#include "recording_output.hpp"
#include "standard_output.hpp"

#include "scanlib/rxpmarker.hpp"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

namespace host {

namespace {

namespace fs = std::filesystem;

/// Room for the longest packet that can be read again, with every word of it escaped.
constexpr std::size_t longest_packet = scanlib::basic_rxpmarker::largest_size;
constexpr std::size_t ring_words = 2 * longest_packet + 1024;

struct assemble_options {
    std::string text;
    std::string output;

    static constexpr const char* standard = "-";
    bool to_standard_output() const { return output == standard; }
};

struct closer {
    void operator()(std::FILE* f) const noexcept {
        if (f != stdin) {
            std::fclose(f);
        }
    }
};
using file_handle = std::unique_ptr<std::FILE, closer>;

/// Opens the text; null, with the reason told, where it cannot be read.
file_handle open_text(const assemble_options& options) {
    if (options.text == assemble_options::standard) {
        return file_handle(stdin);
    }
    std::error_code ignored;
    const bool folder = fs::is_directory(options.text, ignored);
    file_handle file(folder ? nullptr : std::fopen(options.text.c_str(), "rb"));
    if (!file) {
        std::fprintf(stderr, "rxp2k7: cannot read \"%s\": %s\n", options.text.c_str(),
                     folder ? "it is a directory" : std::generic_category().message(errno).c_str());
    }
    return file;
}

/// How far the lines could be read.
struct assembly {
    std::uint64_t line = 0; ///< number of the last one
    std::string error;      ///< of that line, empty if all are good
};

/// Writes the packets of all lines up to the first bad one.
assembly assemble_all(line_source& source, line_assembler& assembler) {
    assembly done;
    std::string_view line;
    while (true) {
        ++done.line;
        switch (source.next(line)) {
        case line_source::outcome::end:
            return done;
        case line_source::outcome::failed:
            done.error = "cannot be read: " + std::generic_category().message(errno);
            return done;
        case line_source::outcome::too_long:
            done.error = "longer than " + std::to_string(line_source::longest_line) + " characters";
            return done;
        case line_source::outcome::line:
            try {
                assembler.take(line);
            } catch (const bad_line& e) {
                done.error = e.what();
                return done;
            }
        }
    }
}

exit_code tell_bad_line(const assemble_options& options, const assembly& done,
                        std::uint64_t packets) {
    const std::string name =
        options.text == assemble_options::standard ? "standard input" : "\"" + options.text + "\"";
    std::fprintf(stderr, "rxp2k7: %s, line %llu: %s\n", name.c_str(),
                 static_cast<unsigned long long>(done.line), done.error.c_str());
    if (packets == 0) {
        return exit_code::input_unreadable;
    }
    std::fprintf(stderr, "rxp2k7: written are the %llu packets of the lines before it\n",
                 static_cast<unsigned long long>(packets));
    return exit_code::input_damaged;
}

/// Writes the packets of the text to `sink`; `publish` is called once they are all there, unless
/// not even the first line is one.
template<class Publish>
exit_code assemble_to(const assemble_options& options, std::FILE* text,
                      std::shared_ptr<scanlib::basic_wconnection> sink, Publish&& publish) {
    const auto encoder = std::make_shared<scanlib::encoder_rxpmarker>(
        std::move(sink), ring_words + longest_packet, longest_packet, true);
    scanlib::packet_emitter emitter(encoder);
    line_source source(text);
    line_assembler assembler(emitter);
    const assembly done = assemble_all(source, assembler);
    if (!done.error.empty() && emitter.packets() == 0) {
        return tell_bad_line(options, done, 0);
    }
    encoder->mark_end();
    encoder->flush();
    publish(emitter.packets());
    return done.error.empty() ? exit_code::good : tell_bad_line(options, done, emitter.packets());
}

exit_code assemble_to_output(const assemble_options& options, std::FILE* text) {
    if (options.to_standard_output()) {
        return assemble_to(options, text, std::make_shared<standard_output>(),
                           [](std::uint64_t) {});
    }
    recording_output output(options.output);
    return assemble_to(options, text, output.connection(), [&](std::uint64_t packets) {
        output.publish();
        std::printf("%s\n  packets    %llu\n", options.output.c_str(),
                    static_cast<unsigned long long>(packets));
    });
}

exit_code run(const assemble_options& options) {
    std::error_code ignored;
    if (fs::equivalent(options.text, options.output, ignored)) {
        throw CLI::ValidationError("OUTPUT", "\"" + options.output + "\" is the input");
    }
    const file_handle text = open_text(options);
    if (!text) {
        return exit_code::input_unreadable;
    }
    try {
        return assemble_to_output(options, text.get());
    } catch (const simulator::output_error& e) {
        std::fprintf(stderr, "rxp2k7: %s\n", e.what());
        return exit_code::output_failed;
    }
}

} // namespace

void add_assemble(CLI::App& app, exit_code& result) {
    CLI::App* command = app.add_subcommand(
        "assemble", "Make a recording of the lines that dump prints, edited or not.");
    auto options = std::make_shared<assemble_options>();
    command->add_option("TEXT", options->text, "lines of text, - for standard input")->required();
    command->add_option("OUTPUT", options->output, "recording to write, - for standard output")
        ->required();
    command->callback([options, &result] { result = run(*options); });
}

} // namespace host
