#include "losses.hpp"

namespace Riegl {

std::vector<Loss> losses_of(const scanlib::loss_log& log) {
    std::vector<Loss> losses;
    for (std::size_t i = 0; i < scanlib::loss_log::kinds; ++i) {
        const auto kind = static_cast<scanlib::loss>(i);
        if (log.count(kind) != 0) {
            const auto& info = scanlib::info_of(kind);
            losses.push_back({info.name, info.sentence, log.count(kind), log.first_offset(kind)});
        }
    }
    return losses;
}

} // namespace Riegl
