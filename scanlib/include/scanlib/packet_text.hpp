#pragma once

#include <cstddef>
#include <cstdint>
#include <ios>
#include <iosfwd>
#include <string>
#include <vector>

#include "scanlib/packet_catalogue.hpp"

/// Packets as lines of text:
///
///     laser_shot_2angles (10.2), 4175077232, 2546146347, 1162689829
///     header (1.0), "A", "B", "C", [{2, 10}, {0, 67}]
///
/// The pair, the listed fields of the kind in their order, each behind ", ", and a newline.
/// Integers are decimal, floats scientific with 16 digits (f32 widened to f64), text stands between
/// double quotes without any escaping. An array of numbers and a sequence stand in brackets, the
/// elements of a sequence of records in braces. The fields of a kind that the catalogue does not
/// have are its words in hexadecimal, 0 as "0".
///
/// With the numeric flag of the stream set, the pair is "10, 2", and there are no brackets and
/// braces.
///
/// A stream is used by one thread.
namespace scanlib {

/// Sets the numeric flag of a stream. For `stream << numeric_packets`.
std::ios_base& numeric_packets(std::ios_base& stream);
/// Clears the numeric flag of a stream, which is its state at first.
std::ios_base& named_packets(std::ios_base& stream);
/// True if the numeric flag of the stream is set.
bool has_numeric_packets(std::ios_base& stream);

/// The pair that was written to or read from the stream last; (0, 0) at first.
packet_id last_packet(std::ios_base& stream);
/// Whether the pair that was read last is one of the catalogue that the text declares unknown.
bool last_packet_declared_unknown(std::ios_base& stream);

/// Writes a pair: `laser_shot_2angles (10.2)`, or `10, 2` with the numeric flag. A pair that the
/// catalogue does not have is named "unknown".
std::ostream& operator<<(std::ostream& out, packet_id id);

/// Reads a pair in the form that the numeric flag asks for. Sets the fail bit where the name is not
/// the one of the numbers. A known pair that is named "unknown" gives (0, 0); `last_packet` then
/// still tells the numbers. `id` keeps its value on a failure.
std::istream& operator>>(std::istream& in, packet_id& id);

/// Writes the line of a packet whose payload is begin to end, and flushes. A payload shorter than a
/// kind without sequence reads as if followed by zero bits. Throws std::range_error ("Missing data
/// for sequence.", "Buffer too small for utf8seq.") for one shorter than the fixed part before a
/// sequence; nothing is written then.
void print_packet(std::ostream& out, packet_id id, const std::uint32_t* begin,
                  const std::uint32_t* end);

/// Writes what follows the pair in that line, and flushes. Throws as print_packet does.
void print_packet_fields(std::ostream& out, packet_id id, const std::uint32_t* begin,
                         const std::uint32_t* end);

/// Reads the fields behind the pair into the words of a payload. On bad text (also: a number that
/// does not fit its field, infinity and NaN, a zero byte in a text, a sequence longer than its kind
/// allows) the fail bit
/// is set and `body` is empty. Empty, too, for a pair that the catalogue does not have, of which
/// nothing is read.
std::istream& read_packet(std::istream& in, packet_id id, std::vector<std::uint32_t>& body);

/// Reads the words of a line in hexadecimal, as lines of unknown kinds hold them, up to the first
/// character that is no comma. Fails as read_packet does.
std::istream& read_packet_words(std::istream& in, std::vector<std::uint32_t>& body);

/// Most words of a payload that the readers make. The framing lets no longer one pass.
inline constexpr std::size_t longest_text_body = std::size_t{1} << 20;

/// The fields as text, in the form without the numeric flag: an array or a sequence is one string,
/// text keeps its quotes. Of a pair that the catalogue does not have, each word in hexadecimal.
/// Throws as print_packet does.
std::vector<std::string> packet_fields(packet_id id, const std::uint32_t* begin,
                                       const std::uint32_t* end);

/// How a pair is written: by the name of its kind, or as two numbers.
enum class pair_form : std::uint8_t { named, numeric };

/// Appends the line that print_packet writes to a stream in its first state, without a stream. For
/// large amounts. Throws as print_packet does; nothing is appended then.
void append_packet(std::string& text, packet_id id, const std::uint32_t* begin,
                   const std::uint32_t* end, pair_form form = pair_form::named);

/// Appends a packet as one of an unknown kind, whatever the catalogue knows of it: `unknown (10.2)`
/// and its words. The line keeps a payload that its kind's fields do not cover.
void append_packet_words(std::string& text, packet_id id, const std::uint32_t* begin,
                         const std::uint32_t* end);

/// Whether reading back the line of a packet gives just these words again. It does not where words
/// or bits lie outside the listed fields, for text that a line cannot hold, for infinity and NaN,
/// and for kinds that the catalogue does not have.
bool text_holds_packet(packet_id id, const std::uint32_t* begin, const std::uint32_t* end);

} // namespace scanlib
