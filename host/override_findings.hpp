#pragma once

#include "scanlib/override_listener.hpp"
#include "scanlib/override_text.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// A field whose text an override changes; empty where one of the packets does not have it.
struct field_change {
    std::size_t index;
    std::string before;
    std::string after;
};

/// A field that kept an entry from matching a packet of its kind.
struct field_difference {
    std::size_t index;
    std::string wanted;
    std::string found;
};

/// What became of an entry of "file_verification".
struct verification_finding {
    std::uint64_t verified = 0;                 ///< packets that satisfied it
    std::optional<field_difference> difference; ///< the first
    std::string failure;
};

enum class packet_outcome { unmatched, replaced, deleted, appended, failed };

/// What became of an entry of "packets".
struct packet_finding {
    packet_outcome outcome = packet_outcome::unmatched;
    std::string before; ///< the packets' pairs
    std::string after;
    std::vector<field_change> changes;
    std::optional<field_difference> difference; ///< the first
    std::string failure;
};

/// What an override text did behind one header packet.
struct region_finding {
    std::vector<verification_finding> verification;
    std::vector<packet_finding> packets;
    bool ended = false;
    std::size_t outstanding = 0; ///< successes of the verification that are lacking
};

/// Keeps what an override text does to a recording, header by header.
class override_findings : public scanlib::override_listener {
  public:
    /// Headers beyond this number are counted only.
    static constexpr std::size_t most_regions = 16;

    /// `text` must outlive this object. With `go_on`, entries that cannot be applied are left out,
    /// as findings; else the reading fails.
    override_findings(const scanlib::override_text& text, bool go_on);
    ~override_findings() override;

    const std::vector<region_finding>& regions() const noexcept { return regions_; }
    std::uint64_t further_regions() const noexcept { return further_; }

    /// Of all headers.
    bool any_failed() const noexcept { return any_failed_; }
    bool any_outstanding() const noexcept { return any_outstanding_; }

    void region_begins() override;
    void verification_differs(std::size_t entry, std::size_t index,
                              const std::string& found) override;
    void packet_differs(std::size_t entry, std::size_t index, const std::string& found) override;
    void verified(std::size_t entry) override;
    void replaced(std::size_t entry, const scanlib::packet_words& before,
                  const scanlib::packet_words& after) override;
    void deleted(std::size_t entry, const scanlib::packet_words& before) override;
    void appended(std::size_t entry, const scanlib::packet_words& after) override;
    bool verification_failed(std::size_t entry, const std::string& reason) override;
    bool packet_failed(std::size_t entry, const std::string& reason) override;
    void region_ends(std::size_t outstanding) override;

  private:
    const scanlib::override_text& text_;
    bool go_on_;
    std::vector<region_finding> regions_;
    region_finding surplus_; ///< takes what is told of the further ones
    region_finding* region_;
    std::uint64_t further_ = 0;
    bool any_failed_ = false;
    bool any_outstanding_ = false;
};

/// `laser_shot (10.0)`.
std::string pair_text(scanlib::packet_id id);
/// What an entry means by its ID, "every version" where it says so.
std::string condition_text(const scanlib::packet_condition& condition);

} // namespace host
