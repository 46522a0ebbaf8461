#include <limits>
#include <stdexcept>
#include <string>

#include "scanlib/pointcloud.hpp"
#include "scanlib/scanlib_exception.hpp"
#include "target_storage.hpp"

// Artefacts near strong echoes (dynamic trigger): the tables, and the targets of a shot that waited
// for its end.
namespace scanlib {

namespace {

/// All numbers of a packet's sequence.
template<class Packet>
std::vector<float> numbers_of(Packet& p) {
    std::vector<float> numbers(p.size());
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        numbers[i] = p[i];
    }
    return numbers;
}

} // namespace

void pointcloud::on_dyntrig(packets::dyntrig& p) {
    std::vector<dynamic_trigger::threshold_row> rows(p.tail_size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const auto e = p.tail(i);
        rows[i] = {e.thra1(), e.del1(), e.dec1(), e.thra2(), e.del2(), e.dec2()};
    }
    dyntrig.set_rows(p.offset(), p.scale(), std::move(rows));
}

void pointcloud::on_dyntrig_pre(packets::dyntrig_pre& p, const std::uint32_t* /*end*/) {
    try {
        dyntrig.set_pre(p.pairs(), numbers_of(p));
    } catch (const std::runtime_error& e) {
        throw scanlib_exception(std::string("pointcloud::on_dyntrig_pre: ") + e.what(),
                                "pointcloud", __LINE__);
    }
}

void pointcloud::on_dyntrig_post(packets::dyntrig_post& p, const std::uint32_t* /*end*/) {
    try {
        dyntrig.set_post(p.pairs(), numbers_of(p));
    } catch (const std::runtime_error& e) {
        throw scanlib_exception(std::string("pointcloud::on_dyntrig_post: ") + e.what(),
                                "pointcloud", __LINE__);
    }
}

/// Reports all targets of a shot, those that are artefacts without a place.
void pointcloud::release_triggered() {
    const std::size_t n = target_count;
    if (dyntrig.mark({targets.data(), n}, hidden_) != 0) {
        for (std::size_t i = 0; i < n; ++i) {
            if (hidden_[i] != 0) {
                target& t = targets[i];
                t.echo_range = std::numeric_limits<double>::quiet_NaN();
                for (float& coordinate : t.vertex) {
                    coordinate = std::numeric_limits<float>::quiet_NaN();
                }
            }
        }
    }
    // One by one, so that the newest target is the one reported.
    targets.swap(aside_);
    alternatives.swap(alternatives_aside_);
    target_count = 0;
    for (std::size_t i = 0; i < n; ++i) {
        next_target() = aside_[i];
        for (std::size_t list = 0; list < alternatives.size(); ++list) {
            alternatives[list][i] = alternatives_aside_[list][i];
        }
        on_echo_ready(n == 1       ? echo_position::single
                      : i == 0     ? echo_position::first
                      : i == n - 1 ? echo_position::last
                                   : echo_position::interior);
    }
}

} // namespace scanlib
