#include "scanlib/pointcloud.hpp"

namespace scanlib {

void pointcloud::configure_synchronisers() {
    // Housekeeping counters are told in order, so that every step back of theirs is a wrap.
    const auto configure = [this](time_sync& sync, std::uint32_t strict) {
        sync.configure(systime_unit, pps_unit, systime_hr_unit, pps_hr_unit, systime_hr_bits,
                       strict);
    };
    configure(shot_sync, 0);
    configure(housekeeping_sync, 1);
    configure(gap_sync, 0);
    seed_synchronisers = true;
}

void pointcloud::on_pps_sync(packets::pps_sync& p) {
    const bool was_locked = shot_sync.locked();
    shot_sync.pps(p.system_counter(), p.pps_time());
    housekeeping_sync.pps(p.system_counter(), p.pps_time());
    gap_sync.pps(p.system_counter(), p.pps_time());
    if (!was_locked && shot_sync.locked()) {
        on_sync_gained();
    }
}

void pointcloud::on_pps_sync_hr(packets::pps_sync_hr& p) {
    const bool was_locked = shot_sync.locked();
    shot_sync.pps(p.system_counter_hr(), p.pps_time_hr());
    housekeeping_sync.pps(p.system_counter_hr(), p.pps_time_hr());
    gap_sync.pps(p.system_counter_hr(), p.pps_time_hr());
    if (!was_locked && shot_sync.locked()) {
        on_sync_gained();
    }
}

void pointcloud::on_counter_sync(packets::counter_sync& p) {
    const sync_time t = housekeeping_sync.convert(p.system_counter());
    housekeeping_time = sync_to_pps_ ? t.external : t.internal;
    if (seed_synchronisers) {
        seed_synchronisers = false;
        shot_sync.convert(p.system_counter());
        gap_sync.convert(p.system_counter());
    }
}

void pointcloud::on_pwm_sync(packets::pwm_sync& p) {
    const sync_time t = housekeeping_sync.convert(p.system_counter());
    housekeeping_time = sync_to_pps_ ? t.external : t.internal;
}

void pointcloud::on_counter_sync_2angles_hr(packets::counter_sync_2angles_hr& p) {
    const sync_time t = housekeeping_sync.convert(p.system_counter_hr());
    housekeeping_time = sync_to_pps_ ? t.external : t.internal;
}

void pointcloud::set_pulse_repetition_rate(double hertz) noexcept {
    shot_sync.set_pulse_repetition_rate(hertz);
    gap_sync.set_pulse_repetition_rate(hertz);
}

void pointcloud::on_range_finder_debug_laser(packets::range_finder_debug_laser& p) {
    set_pulse_repetition_rate(p.pulse_repetition_rate());
}

void pointcloud::on_range_finder_settings(packets::range_finder_settings& p) {
    set_pulse_repetition_rate(p.pulse_repetition_rate());
}

void pointcloud::on_range_finder_program_2(packets::range_finder_program_2& p) {
    set_pulse_repetition_rate(p.pulse_repetition_rate());
}

} // namespace scanlib
