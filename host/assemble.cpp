#include "assemble_lines.hpp"
#include "command_result.hpp"
#include "commands.hpp"
#include "help.hpp"
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
    bool json = false;

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

/// Opens the text; null, with the reason in the result, where it cannot be read.
file_handle open_text(const assemble_options& options, command_result& result) {
    if (options.text == assemble_options::standard) {
        return file_handle(stdin);
    }
    std::error_code ignored;
    const bool folder = fs::is_directory(options.text, ignored);
    file_handle file(folder ? nullptr : std::fopen(options.text.c_str(), "rb"));
    if (!file) {
        result.text = "cannot read \"" + options.text + "\": " +
                      (folder ? "it is a directory" : std::generic_category().message(errno));
        result.code = exit_code::input_unreadable;
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

/// What became of the lines, of which a bad one is the last.
void tell_end(const assemble_options& options, const assembly& done, std::uint64_t packets,
              command_result& result) {
    if (done.error.empty()) {
        return;
    }
    const std::string name =
        options.text == assemble_options::standard ? "standard input" : "\"" + options.text + "\"";
    result.text = name + ", line " + std::to_string(done.line) + ": " + done.error;
    result.code = exit_code::input_unreadable;
    if (packets != 0) {
        result.text +=
            "; written are the " + std::to_string(packets) + " packets of the lines before it";
        result.code = exit_code::input_damaged;
    }
}

/// Writes the packets of the text to `sink`; `publish` is called once they are all there, unless
/// not even the first line is one.
template<class Publish>
void assemble_to(const assemble_options& options, std::FILE* text,
                 std::shared_ptr<scanlib::basic_wconnection> sink, command_result& result,
                 Publish&& publish) {
    const auto encoder = std::make_shared<scanlib::encoder_rxpmarker>(
        std::move(sink), ring_words + longest_packet, longest_packet, true);
    scanlib::packet_emitter emitter(encoder);
    line_source source(text);
    line_assembler assembler(emitter);
    const assembly done = assemble_all(source, assembler);
    tell_end(options, done, emitter.packets(), result);
    if (result.code == exit_code::input_unreadable) {
        return;
    }
    encoder->mark_end();
    encoder->flush();
    publish(emitter.packets());
}

void assemble_to_output(const assemble_options& options, std::FILE* text, command_result& result) {
    if (options.to_standard_output()) {
        assemble_to(options, text, std::make_shared<standard_output>(), result,
                    [](std::uint64_t) {});
        return;
    }
    recording_output output(options.output);
    assemble_to(options, text, output.connection(), result, [&](std::uint64_t packets) {
        output.publish();
        result.found.number("packets", packets).number("bytes_out", output.bytes_written());
        if (!options.json) {
            std::printf("%s\n  packets    %llu\n", options.output.c_str(),
                        static_cast<unsigned long long>(packets));
        }
    });
}

exit_code run(const assemble_options& options) {
    if (recording_output::replaces(options.output, options.text)) {
        throw CLI::ValidationError("OUTPUT", "\"" + options.output + "\" is the input");
    }
    if (options.json && options.to_standard_output()) {
        throw CLI::ValidationError("--json", "the recording has standard output for itself");
    }
    command_result result;
    result.input = options.text;
    result.output = options.output;
    const file_handle text = open_text(options, result);
    try {
        if (text) {
            assemble_to_output(options, text.get(), result);
        }
    } catch (const simulator::output_error& e) {
        result.code = exit_code::output_failed;
        result.text = e.what();
    }
    return tell(result, options.json);
}

} // namespace

void add_assemble(CLI::App& app, exit_code& result) {
    CLI::App* command = app.add_subcommand(
        "assemble", "Make a recording of the lines that dump prints, edited or not.");
    auto options = std::make_shared<assemble_options>();
    command->add_option("TEXT", options->text, "lines of text, - for standard input")->required();
    command->add_option("OUTPUT", options->output, "recording to write, - for standard output")
        ->required();
    command->add_flag("--json", options->json, json_help);
    command->footer(
        examples_text({{"The same recording with another serial number",
                        "rxp2k7 dump --lossless scan.rxp | sed 's/\"SIM00001\"/\"SIM00002\"/' | "
                        "rxp2k7 assemble - changed.rxp"}}));
    command->callback([options, &result] { result = run(*options); });
}

} // namespace host
