#include "simulator/shot_writer.hpp"

#include "scanlib/packet_writers.hpp"

namespace simulator {

namespace {

namespace packets = scanlib::packets;

std::unique_ptr<scanlib::packed_writer> packed_writer_of(packet_form form,
                                                         scanlib::packet_emitter& out) {
    const auto writer = [&](scanlib::packed_form f) {
        return std::make_unique<scanlib::packed_writer>(out, f);
    };
    switch (form) {
    case packet_form::packed:
        return writer(scanlib::packed_form::packed);
    case packet_form::packed_rad:
        return writer(scanlib::packed_form::packed_rad);
    case packet_form::packed_hr:
        return writer(scanlib::packed_form::packed_hr);
    case packet_form::shot_echo:
        return writer(scanlib::packed_form::shot_echo);
    case packet_form::shot_echo_blocks:
        return writer(scanlib::packed_form::shot_echo_blocks);
    case packet_form::plain:
    case packet_form::hr:
        break;
    }
    return nullptr;
}

/// The last two forms have no room for flags.
bool tells_flags(packet_form form) {
    return form != packet_form::shot_echo && form != packet_form::shot_echo_blocks;
}

} // namespace

shot_writer::shot_writer(packet_form form, scanlib::packet_emitter& out)
    : form_(form), out_(out), packed_(packed_writer_of(form, out)) {}

void shot_writer::shot(const scanlib::packed_shot& s) {
    if (packed_) {
        scanlib::packed_shot told = s;
        told.radiation = form_ == packet_form::packed_rad ? s.radiation : std::uint16_t{0};
        packed_->shot(told);
    } else if (form_ == packet_form::hr) {
        out_.emit<packets::laser_shot_2angles_hr_writer>(
            [&](packets::laser_shot_2angles_hr_writer& p) {
                p.time_counter_hr(s.time);
                p.line_counter(s.line);
                p.frame_counter(s.frame);
            });
    } else {
        out_.emit<packets::laser_shot_2angles_writer>([&](packets::laser_shot_2angles_writer& p) {
            p.time_counter(static_cast<std::uint32_t>(s.time));
            p.line_counter(s.line);
            p.frame_counter(s.frame);
        });
    }
}

void shot_writer::echo(const scanlib::packed_echo& e) {
    if (packed_) {
        scanlib::packed_echo told = e;
        told.flags = tells_flags(form_) ? e.flags : 0;
        packed_->echo(told);
        return;
    }
    out_.emit<packets::echo_writer>([&](packets::echo_writer& p) {
        p.range_counter(static_cast<std::int32_t>(e.range));
        p.amplitude(e.amplitude);
        p.reflectance(static_cast<std::int16_t>(e.reflectance));
        p.flags(e.flags);
        p.deviation(static_cast<std::int16_t>(e.deviation));
    });
}

void shot_writer::flush() {
    if (packed_) {
        packed_->flush();
    }
}

} // namespace simulator
