#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

namespace host {

/// The whole text as a number; throws CLI::ValidationError, naming the option, if it is anything
/// else or lies outside the limits.
std::uint64_t parse_whole(const std::string& option, std::string_view text, std::uint64_t least,
                          std::uint64_t greatest);
double parse_real(const std::string& option, std::string_view text, double least, double greatest);

/// Adds an option that takes a whole number, strictly read.
template<class Whole>
CLI::Option* add_whole(CLI::App& app, const std::string& name, Whole& variable,
                       const std::string& help, Whole least = 0,
                       Whole greatest = std::numeric_limits<Whole>::max()) {
    return app
        .add_option_function<std::string>(
            name,
            [&variable, name, least, greatest](const std::string& text) {
                variable = static_cast<Whole>(parse_whole(name, text, least, greatest));
            },
            help)
        ->default_str(std::to_string(variable))
        ->type_name("NUMBER");
}

/// Adds an option that takes a real number, strictly read.
CLI::Option* add_real(CLI::App& app, const std::string& name, double& variable,
                      const std::string& help, double least, double greatest);

} // namespace host
