#pragma once

#include "scanlib/target.hpp"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace scanlib {

/// Finds artefacts near strong echoes. A strong echo raises the trigger threshold around it, so
/// that weak echoes that stand close to it could not have been detected and are none.
///
/// There are two forms of tables for that threshold. The first has straight lines by amplitude,
/// the second, grids over amplitude and distance, one for echoes before the strong one and one for
/// those behind it. Where both are known, the second holds.
///
/// The targets stay in the order in which they are given. Only `neighbour_limit` targets on either
/// side of a strong one are looked at, so that a shot of a broken stream with a huge number of
/// targets takes a time in proportion to that number.
class dynamic_trigger {
  public:
    /// One row of the first form. Index 1 is for echoes behind the strong one, 2 for those before.
    struct threshold_row {
        float thra1 = 0; ///< dB; 0 for no threshold
        float del1 = 0;  ///< m
        float dec1 = 0;  ///< dB/m
        float thra2 = 0; ///< dB; 0 for no threshold
        float del2 = 0;  ///< m
        float dec2 = 0;  ///< dB/m
    };

    /// Targets before and behind a strong one that it can suppress.
    static constexpr std::size_t neighbour_limit = 256;

    /// Takes the first form: row j belongs to the amplitude `offset` + j * `scale`, both in dB. An
    /// empty list changes nothing but `present()`.
    void set_rows(float offset, float scale, std::vector<threshold_row> rows);

    /// Takes the table of the second form for echoes before the strong one. Each row of `values` is
    /// an amplitude (dB), then `pairs` times a distance (m) and a threshold (dB). Throws
    /// std::runtime_error where the values do not fill the rows, or where there are fewer than two
    /// rows or pairs; nothing changes then.
    void set_pre(std::size_t pairs, std::span<const float> values);

    /// The same for echoes behind the strong one.
    void set_post(std::size_t pairs, std::span<const float> values);

    /// Whether tables were taken, be they empty.
    bool present() const noexcept { return present_; }
    /// Whether the second form is in use.
    bool table_form() const noexcept { return table_form_; }

    float offset() const noexcept { return offset_; }
    float scale() const noexcept { return scale_; }
    const std::vector<threshold_row>& rows() const noexcept { return rows_; }

    /// Sets a flag for each target of a shot: 1 for an artefact, else 0. Reads `amplitude` and
    /// `echo_range`. `flags` gets the size of `targets`. Returns how many are set. Allocates only
    /// while `flags` grows beyond its capacity.
    std::size_t mark(std::span<const target> targets, std::vector<std::uint8_t>& flags);

  private:
    /// Thresholds over amplitude and distance.
    struct threshold_grid {
        std::size_t pairs = 0;
        std::vector<double> keys;       ///< dB, one a row
        std::vector<double> reach;      ///< greatest key up to each row
        std::vector<double> distances;  ///< m, `pairs` a row
        std::vector<double> thresholds; ///< dB, `pairs` a row
        // The row of the amplitude chosen last.
        std::vector<double> distance_row;
        std::vector<double> distance_reach; ///< greatest distance up to each pair
        std::vector<double> threshold_row;

        threshold_grid() = default;
        threshold_grid(std::size_t pair_count, std::span<const float> values);
        /// Works out the row of an amplitude; false where it lies outside the keys.
        bool choose(double amplitude) noexcept;
        /// Whether an echo at this distance from the strong one could not have been detected.
        bool hides(double distance, double amplitude) const noexcept;
    };

    void take_grid(threshold_grid& grid, std::size_t pairs, std::span<const float> values);
    void mark_by_rows(std::span<const target> targets, std::uint8_t* flags) const noexcept;
    void mark_by_grids(std::span<const target> targets, std::uint8_t* flags) noexcept;
    const threshold_row& row_of(float amplitude) const noexcept;

    bool present_ = false;
    bool table_form_ = false;
    float offset_ = 0;
    float scale_ = 1;
    std::vector<threshold_row> rows_;
    threshold_grid pre_;
    threshold_grid post_;
};

} // namespace scanlib
