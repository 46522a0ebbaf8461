#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

namespace scanlib {

/// A function given by pairs (x, y), linear between them.
class calibration_curve {
  public:
    using pairs_type = std::vector<std::pair<double, double>>;

    calibration_curve() = default;
    explicit calibration_curve(pairs_type pairs);

    /// The value at `v`: on the line from the pair before to the first pair whose x is not below
    /// `v`. Up to the first pair its y; beyond the last pair the line through the last two goes on.
    /// NaN without pairs.
    double operator()(double v) const noexcept;

    const pairs_type& pairs() const noexcept { return pairs_; }

  private:
    pairs_type pairs_;
    std::vector<double> reach_; ///< greatest x up to each pair, for the search in any order of x
};

/// The instrument's calibration curves by their number.
class calibration_tables {
  public:
    /// Keeps a curve, in place of the one that had this number.
    void set(std::uint16_t id, calibration_curve::pairs_type pairs);

    bool contains(std::uint16_t id) const noexcept { return curves_.contains(id); }

    /// The curve of this number, an empty one where there is none.
    const calibration_curve& curve(std::uint16_t id) const noexcept;

    /// The value of a curve; NaN where there is none.
    double lookup(std::uint16_t id, double v) const noexcept { return curve(id)(v); }

    std::size_t size() const noexcept { return curves_.size(); }
    void clear() noexcept { curves_.clear(); }

  private:
    std::map<std::uint16_t, calibration_curve> curves_;
};

} // namespace scanlib
