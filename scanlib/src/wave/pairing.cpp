#include "scanlib/wave.hpp"

#include <cmath>

// Time of blocks, and which shot each belongs to.
namespace scanlib {

wave::wave(bool sync_to_pps, bool uncompress) : pointcloud(sync_to_pps), uncompress_(uncompress) {
    configure_block_sync();
}

wave::~wave() = default;

void wave::on_wave(wave_block& /*block*/) {}

/// Blocks find their shot by its time, so both must have the same units, also by default.
void wave::configure_block_sync() {
    block_sync_.configure(systime_unit, pps_unit, systime_hr_unit, pps_hr_unit, systime_hr_bits, 0);
}

void wave::on_units(packets::units& p) {
    pointcloud::on_units(p);
    configure_block_sync();
}

void wave::on_pps_sync(packets::pps_sync& p) {
    pointcloud::on_pps_sync(p);
    block_sync_.pps(p.system_counter(), p.pps_time());
}

void wave::on_pps_sync_hr(packets::pps_sync_hr& p) {
    pointcloud::on_pps_sync_hr(p);
    block_sync_.pps(p.system_counter_hr(), p.pps_time_hr());
}

/// Fills in the shot and reports the block, which is not an open one any more.
void wave::hand_over(std::unique_ptr<wave_block> block) {
    block->time = time;
    block->beam_origin = beam_origin;
    block->beam_direction = beam_direction;
    block->facet = facet;
    block->line_angle = line_angle;
    block->frame_angle = frame_angle;
    on_wave(*block);
    pool_.give_back(std::move(block));
}

void wave::on_shot_end() {
    pointcloud::on_shot_end();
    if (open_count() >= 2 &&
        oldest().time_internal > open_blocks_[first_open_ + 1]->time_internal) {
        drop_oldest(loss::block_without_shot);
    }
    while (open_count() != 0 && time_internal > oldest().time_internal) {
        drop_oldest(loss::block_without_shot);
    }
    if (open_count() != 0 && oldest().time_internal == time_internal) {
        hand_over(take_oldest());
        return;
    }
    if (!std::isnan(time) && !channels.empty()) {
        auto block = pool_.take_block();
        block->time_internal = time_internal;
        block->is_pps_locked = shot_sync.locked();
        wave_record& reference = block->records.emplace_back();
        reference.channel = reference_channel_index;
        reference.time_sorg = t_null_pdae;
        hand_over(std::move(block));
    }
}

} // namespace scanlib
