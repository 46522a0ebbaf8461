#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "scanlib/connection.hpp"
#include "scanlib/override_listener.hpp"
#include "scanlib/override_text.hpp"

namespace scanlib {

/// Copies the header region of a stream, changed as an override text demands.
///
/// `reader` stands at the region's `header`. The region ends at the first packet with measurement
/// data (tag "startcond"), at the `context_end` of the header, or at the end of the input; nothing
/// behind it is changed. `writer` gets frames: the region, then what was read beyond it, as it was.
///
/// As long as a success of "file_verification" is outstanding, packets are compared with its
/// entries and pass unchanged; a stream that does not satisfy them passes as it is. Then each
/// packet is replaced or deleted as the first entry of "packets" that matches it says; each entry
/// serves once. Entries that matched nothing are appended to the region.
///
/// Returns how many bytes were passed on as they were.
///
/// Throws std::runtime_error for a text that cannot be parsed or applied ("error: ...", "override:
/// ..."), and what the connections throw.
std::uint64_t rewrite(const std::shared_ptr<basic_rconnection>& reader,
                      const std::shared_ptr<basic_wconnection>& writer, const std::string& pxp);

/// The same with a text that is parsed already. `listener` may be null.
std::uint64_t rewrite(const std::shared_ptr<basic_rconnection>& reader,
                      const std::shared_ptr<basic_wconnection>& writer, const override_text& text,
                      override_listener* listener);

} // namespace scanlib
