#include "command_result.hpp"
#include "commands.hpp"
#include "help.hpp"
#include "input_file.hpp"
#include "numbers.hpp"
#include "recording_walk.hpp"
#include "replay_sender.hpp"
#include "replay_server.hpp"
#include "socket_address.hpp"
#include "survey.hpp"
#include "terminal.hpp"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace host {

namespace {

constexpr const char* loopback = "127.0.0.1";
constexpr double bytes_per_megabyte = 1e6;
constexpr std::uint64_t default_chunk = 65536;
constexpr std::uint64_t default_datagram = 1472; ///< what an Ethernet frame carries
constexpr std::uint64_t largest_chunk = 1 << 30;
constexpr double default_datagram_rate = 50; ///< MB/s; without a limit most would be lost
constexpr std::uint64_t bytes_per_mark = 65536;

struct replay_options {
    std::string input;
    std::string rdtp;
    std::string rddp;
    double rate = 0; ///< MB/s, 0 for none given
    bool real_time = false;
    std::uint64_t chunk = 0; ///< 0 for none given
    bool json = false;
};

[[noreturn]] void refuse(const std::string& reason) {
    throw CLI::ValidationError("replay", reason);
}

/// When the bytes of a recording were there, by the internal time of its shots.
replay_pace recorded_pace(const std::string& input) {
    survey shots;
    recording_walk walk;
    std::vector<replay_pace::mark> marks;
    const auto take = [&](const std::uint32_t* begin, const std::uint32_t* end) {
        shots.take(begin, end);
        const time_span& time = shots.internal_time();
        const double seconds = time.last - time.first;
        const std::uint64_t known = marks.empty() ? 0 : marks.back().offset;
        const double told = marks.empty() ? 0 : marks.back().seconds;
        if (walk.offset >= known + bytes_per_mark && seconds > told) {
            marks.push_back({walk.offset, seconds});
        }
        return true;
    };
    walk_recording(input, walk, take, [](const auto*, const auto*) { return true; });
    if (marks.empty()) {
        complain("\"%s\" tells too few times to be paced by", input.c_str());
    }
    return replay_pace(std::move(marks));
}

replay_settings settings_of(const replay_options& options) {
    replay_settings settings;
    const bool datagrams = !options.rddp.empty();
    settings.chunk_bytes = options.chunk != 0 ? options.chunk
                           : datagrams        ? default_datagram
                                              : default_chunk;
    if (options.real_time) {
        settings.pace = recorded_pace(options.input);
    } else if (options.rate > 0 || datagrams) {
        const double rate = options.rate > 0 ? options.rate : default_datagram_rate;
        settings.pace = replay_pace(rate * bytes_per_megabyte);
    }
    return settings;
}

/// Tells the address and serves until a signal ends the program.
exit_code serve(const std::shared_ptr<const replay_recording>& recording,
                const std::string& address, const replay_settings& settings, bool json) {
    std::string host = loopback;
    std::string port;
    split_address(address, host, port);
    const replay_server server(recording, host, port, settings);
    const std::string uri = "rdtp://" + host + ":" + std::to_string(server.port()) + "/current";
    std::printf("%s\n", json ? json_object().text("uri", uri).str().c_str() : uri.c_str());
    std::fflush(stdout);
    while (true) {
        ::pause();
    }
}

exit_code send(const replay_recording& recording, const std::string& address,
               const replay_settings& settings, bool json) {
    std::string host;
    std::string port;
    split_address(address, host, port);
    const sent_datagrams sent = send_datagrams(recording, host, port, settings);
    if (json) {
        const auto found =
            json_object().number("datagrams", sent.datagrams).number("bytes_out", sent.bytes);
        std::printf("%s\n", found.str().c_str());
    } else {
        std::printf("%llu datagrams, %llu bytes\n", static_cast<unsigned long long>(sent.datagrams),
                    static_cast<unsigned long long>(sent.bytes));
    }
    return flushed(exit_code::good);
}

void check_usage(const replay_options& options) {
    if (options.rdtp.empty() == options.rddp.empty()) {
        refuse("one of --rdtp and --rddp is needed");
    }
    if (options.rate > 0 && options.real_time) {
        refuse("--rate and --real-time exclude each other");
    }
    std::string host = options.rdtp.empty() ? "" : loopback;
    std::string port;
    const std::string& address = options.rdtp.empty() ? options.rddp : options.rdtp;
    if (!split_address(address, host, port)) {
        refuse("\"" + address + "\" is no address");
    }
    parse_whole("the port", port, 0, 65535);
}

exit_code fail(const replay_options& options, exit_code code, const std::string& text) {
    return tell({options.input, {}, code, text, {}}, options.json);
}

exit_code run(const replay_options& options) {
    check_usage(options);
    const std::string refusal = is_live_stream(options.input) ? "a live stream cannot be replayed"
                                                              : reason_unreadable(options.input);
    if (!refusal.empty()) {
        return fail(options, exit_code::input_unreadable, refusal);
    }
    try {
        const auto recording = std::make_shared<const replay_recording>(options.input);
        const replay_settings settings = settings_of(options);
        return options.rddp.empty() ? serve(recording, options.rdtp, settings, options.json)
                                    : send(*recording, options.rddp, settings, options.json);
    } catch (const std::exception& e) {
        return fail(options, exit_code::output_failed, e.what());
    }
}

} // namespace

void add_replay(CLI::App& app, exit_code& result) {
    CLI::App* command =
        app.add_subcommand("replay", "Serve a recording as an instrument serves its live stream.");
    auto options = std::make_shared<replay_options>();
    command->add_option("INPUT", options->input, "recording (*.rxp)")->required();
    command->add_option("--rdtp", options->rdtp, "listen here; port 0 takes a free one")
        ->type_name("[HOST:]PORT");
    command->add_option("--rddp", options->rddp, "send datagrams there")->type_name("HOST:PORT");
    add_real(*command, "--rate", options->rate,
             "MB/s; without it as fast as it goes, or 50 MB/s "
             "of datagrams",
             1e-6, 1e6);
    command->add_flag("--real-time", options->real_time, "as fast as it was recorded");
    add_whole(*command, "--chunk", options->chunk,
              "bytes of a chunk (65536) or at most of a datagram (1472)", std::uint64_t{1},
              largest_chunk);
    command->add_flag("--json", options->json, json_help);
    command->footer(examples_text(
        {{"As fast as it was recorded, to whoever connects",
          "rxp2k7 replay scan.rxp --rdtp 20001 --real-time"},
         {"As datagrams, 20 MB/s", "rxp2k7 replay scan.rxp --rddp 127.0.0.1:30000 --rate 20"}}));
    command->callback([options, &result] { result = run(*options); });
}

} // namespace host
