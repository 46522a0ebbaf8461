#pragma once

#include "exit_code.hpp"

namespace CLI {
class App;
}

namespace host {

/// What the option --json of every command is said to do.
constexpr const char* json_help = "print one JSON object instead of text";

/// Each adds one subcommand to `app`. When the command line chooses it, it runs while `app` parses,
/// and sets `result`, which outlives `app`. Wrong arguments leave as CLI::ParseError.
void add_convert(CLI::App& app, exit_code& result);
void add_info(CLI::App& app, exit_code& result);
void add_points(CLI::App& app, exit_code& result);
void add_inspect(CLI::App& app, exit_code& result);
void add_record(CLI::App& app, exit_code& result);
void add_replay(CLI::App& app, exit_code& result);
void add_override(CLI::App& app, exit_code& result);
void add_check_override(CLI::App& app, exit_code& result);
void add_verify(CLI::App& app, exit_code& result);
void add_look(CLI::App& app, exit_code& result);
void add_export(CLI::App& app, exit_code& result);
void add_simulate(CLI::App& app, exit_code& result);
void add_dump(CLI::App& app, exit_code& result);
void add_assemble(CLI::App& app, exit_code& result);

} // namespace host
