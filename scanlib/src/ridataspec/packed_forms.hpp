#pragma once

#include "scanlib/packed_writer.hpp"

#include <cstdint>
#include <memory>
#include <string>

namespace scanlib {

class packed_writer::form_writer {
  public:
    virtual ~form_writer() = default;
    virtual void shot(const packed_shot& s) = 0;
    virtual void echo(const packed_echo& e) = 0;
    virtual void block_head(const packed_block_head& head) = 0;
    virtual void block(const packed_block& b) = 0;
    virtual void flush() = 0;
};

namespace detail {

/// Throws std::range_error for what a form cannot hold.
[[noreturn]] void refuse(const std::string& what);

inline void require(bool holds, const char* what, std::uint64_t value) {
    if (!holds) {
        refuse(what + (' ' + std::to_string(value)));
    }
}

/// A number that becomes whatever integer it is given to.
struct narrowed {
    std::int64_t value;
    template<class T>
    operator T() const noexcept {
        return static_cast<T>(value);
    }
};

std::unique_ptr<packed_writer::form_writer>
make_key_frame_form(packet_emitter& out, packed_form form, const packing_options& options);
std::unique_ptr<packed_writer::form_writer> make_subpackage_form(packet_emitter& out,
                                                                 bool with_blocks);

} // namespace detail
} // namespace scanlib
