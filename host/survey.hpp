#pragma once

#include "scanlib/loss_log.hpp"
#include "scanlib/packet_catalogue.hpp"
#include "scanlib/pointcloud.hpp"

#include <array>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <vector>

namespace host {

/// First and last time of the shots, in seconds; NaN where there is none.
struct time_span {
    double first = std::numeric_limits<double>::quiet_NaN();
    double last = std::numeric_limits<double>::quiet_NaN();

    void take(double time) noexcept {
        if (time == time) {
            first = first == first ? first : time;
            last = time;
        }
    }
};

/// Number of packets of one kind.
struct kind_count {
    std::string name; ///< "unknown" for a kind that the catalogue does not have
    scanlib::packet_id id;
    std::uint64_t count;
};

/// Looks through the packets of one recording: counts them by kind, follows the time of the shots,
/// and keeps the instrument's metadata. Its memory does not grow with the recording.
class survey : public scanlib::pointcloud {
  public:
    survey() : pointcloud(true) {}

    /// Counts a packet and takes what it tells. Throws what its handlers throw; it is counted then.
    void take(const std::uint32_t* begin, const std::uint32_t* end);

    /// Counts a packet that may be cut, without looking into it.
    void count(const std::uint32_t* begin, const std::uint32_t* end);

    /// The kinds that occurred, most frequent first.
    std::vector<kind_count> kinds() const;

    /// Packets of unknown kinds beyond the first `unknown_limit` different ones.
    std::uint64_t further_unknown() const noexcept { return further_unknown_; }
    static constexpr std::size_t unknown_limit = 4096;

    std::uint64_t packets() const noexcept { return packets_; }
    std::uint64_t shots() const noexcept { return shots_; }
    const time_span& internal_time() const noexcept { return internal_; }
    const time_span& pps_time() const noexcept { return pps_; }

    const std::string& instrument_serial() const noexcept { return serial; }
    const std::string& instrument_type() const noexcept { return type_id; }
    const std::string& instrument_build() const noexcept { return build; }

    /// The metadata as JSON; empty if the recording does not get as far as the measurement.
    std::string metadata(bool pretty) const;

    // Echoes are counted only.
    void on_echo(scanlib::packets::echo& /*p*/) override {}
    void on_echo_1(scanlib::packets::echo_1& /*p*/) override {}
    void on_laser_echo(scanlib::packets::laser_echo& /*p*/) override {}
    void on_laser_echo_qual(scanlib::packets::laser_echo_qual& /*p*/) override {}
    void on_laser_echo_sw(scanlib::packets::laser_echo_sw& /*p*/) override {}

  protected:
    void on_shot() override;

  private:
    std::array<std::uint64_t, scanlib::packet_index_count> known_{};
    std::map<scanlib::packet_id, std::uint64_t> unknown_;
    std::uint64_t further_unknown_ = 0;
    std::uint64_t packets_ = 0;
    std::uint64_t shots_ = 0;
    time_span internal_;
    time_span pps_;
};

} // namespace host
