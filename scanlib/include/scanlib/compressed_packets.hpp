#pragma once

#include "scanlib/basic_packets.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace scanlib {

/// Expands the `packed_*` kinds into the ordinary packets of the same meaning.
///
/// Whoever derives from it sees plain shots and echoes only, whatever the instrument wrote: the
/// expanded packets arrive at the same handlers as those of the stream, through the virtual table,
/// as views that are valid during the call. They call no `on_packet`, and `selection` says nothing
/// about them; it selects the packed kinds themselves.
///
/// All forms are delta coded: a key gives absolute values, what follows adds differences. In the
/// older forms shots and echoes flow in packets of their own, and meet at queues:
///
///     packed_key_laser_shot   (2 echoes)   -> on_laser_shot_2angles, _1angle, on_laser_shot
///     packed_frame_laser_shot (1) (3)
///     packed_frame_echo A B C D            -> on_echo A, on_echo B, shot, on_echo C, shot, on_echo
///     D packed_frame_echo E F                -> on_echo E, on_echo F
///
/// In the newer ones, `packed_shot_echos_hr` and `packed_shot_echos_sbl_hr`, the echoes of a shot
/// follow it in one stream of subpackages, the latter with sample blocks between them.
///
/// The state is kept between packets, and between streams. It is not copied; an object belongs to
/// one thread. Memory is bounded by `queue_limit`; in steady state nothing is allocated.
class compressed_packets : public virtual basic_packets {
  public:
    /// Logical packets dispatched: a packed packet counts as those that it expanded to, or as one
    /// where there were none. The three calls for a plain shot count as one.
    std::uint32_t packet_total = 0;

    /// Most shots of one form, and most echoes, that wait for their counterpart. What comes beyond
    /// is dropped and counted. Twice of what the shots of one whole packet can claim.
    static constexpr std::size_t queue_limit = std::size_t{1} << 19;

    /// With `skip_sample_blocks` the sample blocks of `packed_shot_echos_sbl_hr` are passed over.
    explicit compressed_packets(bool skip_sample_blocks);
    compressed_packets(const compressed_packets&) = delete;
    compressed_packets& operator=(const compressed_packets&) = delete;
    ~compressed_packets() override;

    /// As of basic_packets. Throws, beside what that throws, std::runtime_error ("Unknown
    /// subpackage v2: " or "Unknown subpackage v3: " and the tag); what came before stays
    /// delivered.
    bool dispatch(const std::uint32_t* begin, const std::uint32_t* end) override;

    void on_packed_frame_echo(packets::packed_frame_echo& p, const std::uint32_t* end) override;
    void on_packed_frame_echo_hr(packets::packed_frame_echo_hr& p,
                                 const std::uint32_t* end) override;
    void on_packed_frame_echo_hr_1(packets::packed_frame_echo_hr_1& p,
                                   const std::uint32_t* end) override;
    void on_packed_frame_laser_shot_2angles(packets::packed_frame_laser_shot_2angles& p,
                                            const std::uint32_t* end) override;
    void on_packed_frame_laser_shot_2angles_hr(packets::packed_frame_laser_shot_2angles_hr& p,
                                               const std::uint32_t* end) override;
    void on_packed_frame_laser_shot_2angles_rad(packets::packed_frame_laser_shot_2angles_rad& p,
                                                const std::uint32_t* end) override;
    void on_packed_key_echo(packets::packed_key_echo& p) override;
    void on_packed_key_echo_hr(packets::packed_key_echo_hr& p) override;
    void on_packed_key_echo_hr_1(packets::packed_key_echo_hr_1& p) override;
    void on_packed_key_laser_shot_2angles(packets::packed_key_laser_shot_2angles& p) override;
    void on_packed_key_laser_shot_2angles_hr(packets::packed_key_laser_shot_2angles_hr& p) override;
    void
    on_packed_key_laser_shot_2angles_rad(packets::packed_key_laser_shot_2angles_rad& p) override;
    void on_packed_shot_echos_hr(packets::packed_shot_echos_hr& p,
                                 const std::uint32_t* end) override;
    void on_packed_shot_echos_sbl_hr(packets::packed_shot_echos_sbl_hr& p,
                                     const std::uint32_t* end) override;

  private:
    struct decoder_state;
    std::unique_ptr<decoder_state> state_;
};

} // namespace scanlib
