#include "commands.hpp"
#include "help.hpp"
#include "terminal.hpp"

#include <CLI/CLI.hpp>
#include <csignal>
#include <exception>
#include <string>

namespace {

const std::string exit_codes =
    "Exit codes: 0 all good, 1 internal failure, 2 usage, 3 input unreadable, 4 input damaged "
    "(what could be read is stored), 5 output failed, 6 some of several inputs failed.";

int run(int argc, char** argv) {
    CLI::App app("Turns laser-scanner recordings (RXP) into K7 files.", "rxp2k7");
    app.set_version_flag("--version", "rxp2k7 " RXP2K7_VERSION);
    app.require_subcommand(1);
    host::exit_code result = host::exit_code::good;
    host::add_convert(app, result);
    host::add_info(app, result);
    host::add_points(app, result);
    host::add_inspect(app, result);
    host::add_record(app, result);
    host::add_replay(app, result);
    host::add_override(app, result);
    host::add_check_override(app, result);
    host::add_verify(app, result);
    host::add_look(app, result);
    host::add_export(app, result);
    host::add_simulate(app, result);
    host::add_dump(app, result);
    host::add_assemble(app, result);
    app.footer(exit_codes +
               ("\n\n" + host::examples_text({{"Try the program without an instrument",
                                               "rxp2k7 simulate 200101_120000_Scanner_1.rxp"},
                                              {"Convert what it wrote",
                                               "rxp2k7 convert 200101_120000_Scanner_1.rxp"}})));
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        return app.exit(e) == 0 ? 0 : static_cast<int>(host::exit_code::usage);
    }
    return static_cast<int>(result);
}

} // namespace

int main(int argc, char** argv) {
#ifdef SIGXFSZ
    // So a file-size limit is a failed write with a message, like a full disk.
    std::signal(SIGXFSZ, SIG_IGN);
#endif
    try {
        return run(argc, argv);
    } catch (const std::exception& e) {
        host::complain("internal failure: %s", e.what());
    } catch (...) {
        host::complain("internal failure");
    }
    return static_cast<int>(host::exit_code::internal_failure);
}
