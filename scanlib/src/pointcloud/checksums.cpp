#include "scanlib/pointcloud.hpp"

namespace scanlib {

namespace {

/// Most unknown versions of one packet that run through the checksums. Each runs the whole packet
/// through, and no instrument is so many versions ahead.
constexpr std::uint32_t most_unknown_attempts = 256;

} // namespace

unknown_walk pointcloud::on_packet(packet_id id, const packet_head& head) {
    if (checksums.size() == 0) [[likely]] {
        return unknown_walk::enough;
    }
    const packet_index kind = index_of(id);
    if (kind != packet_index::unknown) {
        checksums.update(kind, head.begin, head.end);
        return unknown_walk::enough;
    }
    if (attempts_packet_ != packet_count) {
        attempts_packet_ = packet_count;
        unknown_attempts_ = 0;
    }
    if (!checksums.selects(kind) || unknown_attempts_ == most_unknown_attempts) {
        return unknown_walk::enough;
    }
    ++unknown_attempts_;
    checksums.update(kind, head.begin, head.end);
    return unknown_walk::more;
}

void pointcloud::on_crc32_header(packets::crc32_header& p, const std::uint32_t* /*end*/) {
    checksums.begin(p.context());
    for (std::size_t i = 0; i < p.size(); ++i) {
        const auto e = p[i];
        checksums.select(p.context(), index_of({e.id(), e.version()}));
    }
}

void pointcloud::on_crc32_check(packets::crc32_check& p) {
    if (const auto m = checksums.check(p.context(), p.sequence(), p.crc())) {
        note_loss(loss::checksum_mismatch);
        on_crc_mismatch(p.context(), m->sequence, m->new_sequence);
    }
}

void pointcloud::on_crc_mismatch(std::uint8_t, std::uint32_t, std::uint32_t) {}

} // namespace scanlib
