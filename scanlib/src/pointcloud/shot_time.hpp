#pragma once

#include "scanlib/pointcloud.hpp"

namespace scanlib {

/// Gives the shot at hand its time.
template<class Count>
inline void pointcloud::take_shot_time(Count ticks) {
    const bool was_locked = shot_sync.locked();
    const sync_time t = shot_sync.convert(ticks);
    time = sync_to_pps_ ? t.external : t.internal;
    time_internal = t.internal;
    if (was_locked && !shot_sync.locked()) [[unlikely]] {
        on_sync_lost();
    }
}

} // namespace scanlib
