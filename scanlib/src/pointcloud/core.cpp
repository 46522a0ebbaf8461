#include "scanlib/pointcloud.hpp"
#include "stored_meta.hpp"

namespace scanlib {

pointcloud::pointcloud(bool sync_to_pps)
    : compressed_packets(false)
    , embedded_mech(&beam_origin, &beam_direction)
    , sync_to_pps_(sync_to_pps)
    , meta_(std::make_unique<stored_meta>()) {
    reset();
}

pointcloud::~pointcloud() = default;

void pointcloud::reset() {
    static_cast<pointcloud_state&>(*this) = pointcloud_state{};
    mechs.clear();
    embedded_mech.range_unit = range_unit;
    embedded_mech.line_circle_count = 4294967295;
    embedded_mech.frame_circle_count = 4294967295;
    embedded_mech.initialise();
    beam_origin = {};
    beam_direction = {};
    targets.clear();
    targets.reserve(10);
    target_count = 0;
    alternatives.clear();
    alternatives_aside_.clear();
    *meta_ = {};
    configure_synchronisers();
}

void pointcloud::on_shot() {}

void pointcloud::on_shot_end() {}

void pointcloud::on_gap_pulse() {}

void pointcloud::on_sync_gained() {}

void pointcloud::on_sync_lost() {}

void pointcloud::start_measurement() {
    if (!measurement_started) {
        on_check_parameters_before_measurement_starting();
        measurement_started = true;
        apply_meta();
    }
}

void pointcloud::on_meas_start(packets::meas_start& /*p*/) {
    start_measurement();
}

void pointcloud::on_meas_stop(packets::meas_stop& /*p*/) {
    close_shot();
}

void pointcloud::on_frame_stop(packets::frame_stop& /*p*/) {
    close_shot();
}

void pointcloud::on_line_stop(packets::line_stop& /*p*/) {
    if (target_count != 0) {
        targets[target_count - 1].lineend = 1;
    }
    close_shot();
    if (mta_enabled) {
        history.clear();
    }
}

void pointcloud::on_line_start_segment_1(packets::line_start_segment_1& /*p*/) {
    segment_pending = 0;
}

void pointcloud::on_line_start_segment_2(packets::line_start_segment_2& /*p*/) {
    segment_pending = 1;
}

void pointcloud::on_line_start_segment_3(packets::line_start_segment_3& /*p*/) {
    segment_pending = 2;
}

void pointcloud::on_line_start_segment_4(packets::line_start_segment_4& /*p*/) {
    segment_pending = 3;
}

void pointcloud::on_line_start_segment_5(packets::line_start_segment_5& /*p*/) {
    segment_pending = 4;
}

void pointcloud::on_header(packets::header& p, const std::uint32_t* /*end*/) {
    type_id = p.type_id().view();
    build = p.build().view();
    serial = p.serial().view();
    mechs.clear();
}

void pointcloud::on_header_device(packets::header_device& p) {
    ident = std::to_string(p.major()) + "." + std::to_string(p.minor()) + "-" +
            static_cast<char>(p.letter());
}

} // namespace scanlib
