#include "scanlib/packed_writer.hpp"

#include "packed_forms.hpp"

#include <stdexcept>
#include <string>

namespace scanlib {

void detail::refuse(const std::string& what) {
    throw std::range_error("The packed form does not hold " + what + '.');
}

namespace {

std::unique_ptr<packed_writer::form_writer> make_form(packet_emitter& out, packed_form form,
                                                      const packing_options& options) {
    switch (form) {
    case packed_form::shot_echo:
        return detail::make_subpackage_form(out, false);
    case packed_form::shot_echo_blocks:
        return detail::make_subpackage_form(out, true);
    case packed_form::packed:
    case packed_form::packed_rad:
    case packed_form::packed_hr:
        break;
    }
    return detail::make_key_frame_form(out, form, options);
}

} // namespace

packed_writer::packed_writer(packet_emitter& out, packed_form form, const packing_options& options)
    : form_(make_form(out, form, options)) {}

packed_writer::~packed_writer() = default;

void packed_writer::need_shot() const {
    if (!shot_open_) {
        throw std::logic_error("No shot is open that this could belong to.");
    }
}

void packed_writer::shot(const packed_shot& s) {
    form_->shot(s);
    shot_open_ = true;
}

void packed_writer::echo(const packed_echo& e) {
    need_shot();
    form_->echo(e);
}

void packed_writer::block_head(const packed_block_head& head) {
    need_shot();
    form_->block_head(head);
}

void packed_writer::block(const packed_block& b) {
    need_shot();
    form_->block(b);
}

void packed_writer::flush() {
    form_->flush();
    shot_open_ = false;
}

} // namespace scanlib
