#include "survey.hpp"

#include <algorithm>
#include <sstream>

namespace host {

void survey::count(const std::uint32_t* begin, const std::uint32_t* end) {
    ++packets_;
    const scanlib::packet_head head = scanlib::read_head(begin, end, short_codes());
    const scanlib::packet_id id{head.id, head.version};
    const scanlib::packet_index n = scanlib::index_of(id);
    if (n != scanlib::packet_index::unknown) {
        ++known_[static_cast<std::size_t>(n)];
        return;
    }
    const auto found = unknown_.find(id);
    if (found != unknown_.end()) {
        ++found->second;
    } else if (unknown_.size() < unknown_limit) {
        unknown_.emplace(id, 1);
    } else {
        ++further_unknown_;
    }
}

void survey::take(const std::uint32_t* begin, const std::uint32_t* end) {
    count(begin, end);
    dispatch(begin, end);
}

void survey::on_shot() {
    ++shots_;
    internal_.take(time_internal);
    pps_.take(time);
}

std::vector<kind_count> survey::kinds() const {
    std::vector<kind_count> result;
    for (std::size_t n = 0; n < known_.size(); ++n) {
        if (known_[n] != 0) {
            const auto& kind = scanlib::layout_of(static_cast<scanlib::packet_index>(n));
            result.push_back({std::string(kind.name), {kind.id, kind.version}, known_[n]});
        }
    }
    for (const auto& [id, number] : unknown_) {
        result.push_back({"unknown", id, number});
    }
    std::stable_sort(result.begin(), result.end(),
                     [](const kind_count& a, const kind_count& b) { return a.count > b.count; });
    return result;
}

std::string survey::metadata(bool pretty) const {
    if (!measurement_started) {
        return {};
    }
    std::ostringstream out;
    get_meta(out, pretty);
    return out.str();
}

} // namespace host
