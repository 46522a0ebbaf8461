#pragma once

#include "exported_point.hpp"
#include "row_window.hpp"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace host {

/// What became of the echoes so far.
struct join_counts {
    std::uint64_t echoes = 0;       ///< looked at
    std::uint64_t without_shot = 0; ///< no shot of their time was found
    std::uint64_t not_finite = 0;   ///< a coordinate is NaN or infinite

    join_counts& operator+=(const join_counts& more) noexcept {
        echoes += more.echoes;
        without_shot += more.without_shot;
        not_finite += more.not_finite;
        return *this;
    }
};

/// The points of a slice: each echo of "OPP" with the shot of the same "GPSTime",
///
///     point = origin of the beam + range * direction of the beam
///
/// Both grids are walked once, side by side; fragments do not matter, since an echo may stand in
/// one behind that of its shot. Times rise but for corrections of the instrument's clock, so a
/// shot that does not come next is looked for among `shots_around` rows before and behind.
///
/// Memory is bounded. The file outlives it.
class point_join {
  public:
    /// Throws Skein::K7ReadError where the grids are missing or have no such columns; a slice
    /// without "OPP" has no points.
    point_join(const Skein::K7Reader& file, const std::string& slice);

    /// Echoes of the slice.
    std::uint64_t size() const noexcept { return echoes_.size(); }

    /// Fills `to` with the next points in the order of the echoes, and returns their number, less
    /// than there is room for at the end only.
    std::size_t next(std::span<exported_point> to);

    const join_counts& counts() const noexcept { return counts_; }
    /// Why not all could be read; empty where it could.
    const std::string& failure() const noexcept { return failure_; }

    static constexpr std::uint64_t shots_around = 1024;

  private:
    using shots = row_window<double, double, double>;
    using echoes = row_window<double, double, float, std::uint8_t, float>;

    double echo_time(std::uint64_t row) const;
    double shot_time(std::uint64_t row) const;
    void read_points(std::span<exported_point> to, std::size_t& filled);
    void begin_shot();
    std::optional<std::uint64_t> find_shot(double time, double next);
    std::optional<std::uint64_t> find_around(double time);
    bool place(exported_point& p) const;

    shots shots_;
    echoes echoes_;
    std::uint64_t shot_ = 0; ///< row that comes next
    std::uint64_t echo_ = 0;

    // The shot of the present echoes.
    std::uint64_t last_echo_ = 0; ///< row behind them
    std::optional<std::uint64_t> found_;
    double time_ = 0;
    std::array<double, 3> direction_{};
    std::array<double, 3> origin_{};
    std::uint8_t return_number_ = 0;
    std::uint8_t returns_ = 0;

    join_counts counts_;
    std::string failure_;
};

} // namespace host
