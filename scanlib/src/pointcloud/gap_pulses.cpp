#include <cmath>

#include "scanlib/pointcloud.hpp"
#include "scanlib/saturate.hpp"
#include "target_storage.hpp"

// Shots without echoes inside a stretch between two known shots.
namespace scanlib {

namespace {

/// A counter that runs round a circle from one known place to another.
class circle_run {
  public:
    circle_run(std::uint32_t begin, std::uint32_t end, std::uint32_t circle_count)
        : begin_(begin)
        , length_((end < begin ? static_cast<double>(circle_count) : 0.0) + end - begin)
        , circle_count_(circle_count) {}

    /// The count at a fraction of the run.
    std::uint32_t at(double fraction) const noexcept {
        const auto count = saturate<std::uint64_t>(std::trunc(length_ * fraction + begin_));
        return circle_count_ == 0 ? 0 : static_cast<std::uint32_t>(count % circle_count_);
    }

  private:
    double begin_;
    double length_;
    std::uint32_t circle_count_;
};

/// Most stretches of pulses that one packet holds; more can only come from a broken one.
constexpr std::size_t most_stretches = 16;

} // namespace

void pointcloud::on_echo_gap_data(packets::echo_gap_data& p, const std::uint32_t* /*end*/) {
    const sync_time begin = gap_sync.convert(p.time_begin());
    const sync_time end = gap_sync.convert(p.time_end());
    if (sync_to_pps_ && !gap_sync.valid()) {
        return;
    }
    const double t0 = sync_to_pps_ ? begin.external : begin.internal;
    const double dt = (sync_to_pps_ ? end.external : end.internal) - t0;
    const circle_run lines(p.line_begin(), p.line_end(), embedded_mech.line_circle_count);
    const circle_run frames(p.frame_begin(), p.frame_end(), embedded_mech.frame_circle_count);
    const double n = p.pulse_count();

    const mta_shot shot = {facet,       segment,        line_angle, frame_angle,  0,
                           beam_origin, beam_direction, time,       time_internal};
    scanmech* chosen = mech_of(segment);
    scanmech& mech = chosen != nullptr ? *chosen : embedded_mech;
    for (std::size_t stretch = 0; stretch < p.size() && stretch < most_stretches; ++stretch) {
        const auto e = p[stretch];
        const std::uint32_t first = e.first();
        for (std::uint32_t i = first; i < first + e.count(); ++i) {
            const double f = n == 0 ? 0 : i / n;
            time = f * dt + t0;
            mech.set_counts(lines.at(f), frames.at(f), segment);
            take_beam_of(mech);
            on_gap_pulse();
        }
    }
    // The model, too, goes back to the shot at hand, whose echoes still come.
    mech.set_counts(line_counter, frame_counter, segment);
    facet = shot.facet;
    line_angle = shot.line_angle;
    frame_angle = shot.frame_angle;
    beam_origin = shot.beam_origin;
    beam_direction = shot.beam_direction;
    time = shot.time;
}

} // namespace scanlib
