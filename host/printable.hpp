#pragma once

#include <string>

namespace host {

/// A text of foreign origin, fit for a terminal: without control characters but line feeds and
/// tabs, and cut where it is very long.
std::string printable(std::string text);

} // namespace host
