#pragma once

#include <cstdint>
#include <string>

#include "bundle_interface/export.hpp"

/// Calendar and clock.
namespace PulseKit {

/// Date and time at the start of a name, as in "190209_124210_Scanner_1.rxp": yymmdd_hhmmss, years
/// 2000 to 2099. A name that does not begin so, or with no real date or time, gives seven zeros.
class Chronometry {
  public:
    /// Reads `name`, a file name without its folder. Throws nothing for any text.
    explicit Chronometry(const std::string& name);

    /// The date with `separator` between two digits of the day, two of the month and four of the
    /// year.
    std::string ddmmyyyy(char separator) const;

    std::int32_t date = 0;           ///< yyyymmdd
    std::int32_t time = 0;           ///< hhmmss
    std::int32_t year = 0;           ///< four digits
    std::int32_t month = 0;          ///< 1 to 12
    std::int32_t day = 0;            ///< 1 to 31
    std::int32_t seconds_of_day = 0; ///< since midnight
    std::int32_t date_code = 0;      ///< days since 1970-01-01
};

} // namespace PulseKit
