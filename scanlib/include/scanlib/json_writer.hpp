#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace scanlib {

/// Builds JSON text, member by member, on one line.
///
/// Numbers are independent of the locale: 64-bit floats have 17 significant digits, 32-bit
/// floats 9. JSON has no number for NaN and the infinities; they come out as the strings "nan",
/// "inf" and "-inf", which every JSON reader takes and which convert to these numbers. An array
/// without elements comes out as "", as a property tree writes it. Bytes of a text that are not
/// valid UTF-8 are taken as Latin-1, so that the result always is valid.
class json_writer {
  public:
    json_writer& begin_object();
    json_writer& end_object();
    json_writer& begin_array();
    json_writer& end_array();
    /// Name of the next member.
    json_writer& key(std::string_view name);
    json_writer& value(double number);
    json_writer& value(float number);
    json_writer& value(std::int32_t number);
    json_writer& value(std::uint32_t number);
    json_writer& value(std::uint64_t number);
    json_writer& value(std::string_view text);

    /// A member that is one value.
    template<class Value>
    json_writer& member(std::string_view name, const Value& content) {
        return key(name).value(content);
    }

    /// A member that is an array of values.
    template<class Values>
    json_writer& array(std::string_view name, const Values& contents) {
        key(name).begin_array();
        for (const auto& content : contents) {
            value(content);
        }
        return end_array();
    }

    /// What was built so far.
    const std::string& text() const noexcept { return text_; }

  private:
    void separate();
    void put_text(std::string_view text);
    template<class Float>
    json_writer& put_float(Float number, int digits);
    template<class Int>
    json_writer& put_int(Int number);

    std::string text_;
    std::vector<bool> filled_; ///< for each open object or array, whether it has an element
    bool after_key_ = false;
};

} // namespace scanlib
