#pragma once

#include <vector>

#include "frontend/conversion.hpp"
#include "scanlib/loss_log.hpp"

namespace Riegl {

/// The kinds of loss that a pass met, for its caller.
std::vector<Loss> losses_of(const scanlib::loss_log& log);

} // namespace Riegl
