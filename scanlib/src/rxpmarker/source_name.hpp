#pragma once

namespace scanlib {

/// Source that framing failures name.
inline constexpr const char* rxpmarker_source = "scanlib/src/rxpmarker";

} // namespace scanlib
