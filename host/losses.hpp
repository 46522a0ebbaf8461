#pragma once

#include <string>
#include <vector>

#include "frontend/conversion.hpp"

namespace host {

/// What was lost or doubted, as a JSON array: name, count, offset of the first case and a sentence.
std::string losses_json(const std::vector<Riegl::Loss>& losses);

} // namespace host
