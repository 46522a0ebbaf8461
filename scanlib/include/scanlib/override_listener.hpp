#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "scanlib/rxp_istream.hpp"

namespace scanlib {

/// Hears what an override text does to a stream. Entries are counted from 0, within their list.
class override_listener {
  public:
    override_listener() = default;
    override_listener(const override_listener&) = delete;
    override_listener& operator=(const override_listener&) = delete;
    virtual ~override_listener();

    /// A `header` was found: the entries of the text are all there again.
    virtual void region_begins();
    /// The packet has the kind that an entry of "file_verification" or "packets" means, but its
    /// field `index` is `found` and not what the entry asks for.
    virtual void verification_differs(std::size_t entry, std::size_t index,
                                      const std::string& found);
    virtual void packet_differs(std::size_t entry, std::size_t index, const std::string& found);
    virtual void verified(std::size_t entry);
    virtual void replaced(std::size_t entry, const packet_words& before, const packet_words& after);
    virtual void deleted(std::size_t entry, const packet_words& before);
    virtual void appended(std::size_t entry, const packet_words& after);
    /// Whether to go on without the entry, which cannot be applied; else the failure is thrown.
    virtual bool verification_failed(std::size_t entry, const std::string& reason);
    virtual bool packet_failed(std::size_t entry, const std::string& reason);
    /// The header region is at its end. So many successes of "file_verification" are lacking.
    virtual void region_ends(std::size_t outstanding);
};

} // namespace scanlib
