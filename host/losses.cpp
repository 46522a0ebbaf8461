#include "losses.hpp"

#include "json.hpp"

namespace host {

std::string losses_json(const std::vector<Riegl::Loss>& losses) {
    json_array all;
    for (const Riegl::Loss& l : losses) {
        all.add(json_object()
                    .text("name", l.name)
                    .number("count", l.count)
                    .number("first_offset", l.first_offset)
                    .text("sentence", l.sentence)
                    .str());
    }
    return all.str();
}

} // namespace host
