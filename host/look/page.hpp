#pragma once

#include "scan_view.hpp"

#include <string>

namespace host {

constexpr int page_width = 1640;
constexpr int page_height = 1180;

/// The page of a scan as the bytes of a PNG of that size. Throws std::runtime_error where it cannot
/// be drawn.
std::string draw_scan_page(const scan_view& view);

} // namespace host
