#include "numbers.hpp"

#include <charconv>
#include <cmath>

namespace host {

namespace {

template<class Number>
Number parse(const std::string& option, std::string_view text, Number least, Number greatest) {
    Number value{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end || !(value >= least && value <= greatest)) {
        throw CLI::ValidationError(option,
                                   "\"" + std::string(text) + "\" is not a number that fits here");
    }
    return value;
}

} // namespace

std::uint64_t parse_whole(const std::string& option, std::string_view text, std::uint64_t least,
                          std::uint64_t greatest) {
    return parse(option, text, least, greatest);
}

double parse_real(const std::string& option, std::string_view text, double least, double greatest) {
    return parse(option, text, least, greatest);
}

CLI::Option* add_real(CLI::App& app, const std::string& name, double& variable,
                      const std::string& help, double least, double greatest) {
    return app
        .add_option_function<std::string>(
            name,
            [&variable, name, least, greatest](const std::string& text) {
                variable = parse_real(name, text, least, greatest);
            },
            help)
        ->type_name("NUMBER");
}

} // namespace host
