#pragma once

#include "verify_findings.hpp"
#include "verify_layout.hpp"

#include <map>
#include <string>
#include <vector>

namespace host {

/// Looks at the values of one grid, fragment after fragment by rising number. Reads blocks of rows,
/// so memory is bounded.
class value_check {
  public:
    explicit value_check(k7_findings& findings) : findings_(findings) {}

    /// One array of a fragment, whose column is documented.
    struct part {
        const k7_column* column;
        std::string path;
        const Skein::K7Array* array;
    };
    /// The arrays of one fragment that have the type and shape they should.
    void look_at(const std::vector<part>& parts);

  private:
    void look_at_floats(const part& p);
    void look_at_times(const part& p);
    void look_at_waveforms(const part& lengths, const part& samples);

    k7_findings& findings_;
    bool has_time_ = false;
    double latest_ = 0;
};

} // namespace host
