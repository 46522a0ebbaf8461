#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>
#include <tuple>
#include <utility>

#include "bundle_interface/holdfast.hpp"
#include "bundle_interface/skein.hpp"
#include "frontend/conversion.hpp"
#include "staging_column.hpp"

namespace Riegl {

/// The rows of one grid that are not stored yet. Lives for one fragment.
class SkeinDataBase : public Holdfast::ReferenceBase<SkeinDataBase> {
  public:
    /// Takes or makes the grid `name` of `slice` and its representation in `chart`. Throws what the
    /// bundle throws.
    SkeinDataBase(Skein::Slice& slice, const std::string& name, const std::string& chart);

    /// Makes the columns' arrays and fields. Memory is taken as rows are made ready.
    virtual void reserve(std::uint32_t rows, std::uint32_t width) = 0;

    /// Stores the first `count` rows of all columns as a fragment, in the columns' order. Returns
    /// the first column's error text, after which no further column is stored. Stores nothing if
    /// the count is 0 or `skip_flag` is set. Throws what the bundle throws.
    virtual std::string write(std::uint32_t fragment, std::uint32_t count, std::int32_t date_code,
                              bool leap_flag, bool skip_flag) = 0;

    const std::uint64_t instance; ///< running number in the process
    const Holdfast::StrongPtr<Skein::Grid> grid;
    const Holdfast::StrongPtr<Skein::Representation> representation;

  private:
    static std::atomic<std::uint64_t> instances;
};

template<class Tuple>
class SkeinData;

/// Staging object with one column per tuple element.
///
/// For each row call ensure_row once, then assign its cells; cells that are not assigned are zero.
template<class... Columns>
class SkeinData<std::tuple<Columns...>> : public SkeinDataBase {
  public:
    /// What staging objects of one grid leave to the next; outlives them.
    using Memory = std::array<ColumnMemory, sizeof...(Columns)>;

    SkeinData(Skein::Slice& slice, const std::string& name, const std::string& chart,
              Memory& memory)
        : SkeinDataBase(slice, name, chart), memory_(memory) {}

    void reserve(std::uint32_t rows, std::uint32_t width) override {
        ready_ = 0;
        reserve_columns(rows, width, std::index_sequence_for<Columns...>());
    }

    std::string write(std::uint32_t fragment, std::uint32_t count, std::int32_t date_code,
                      bool leap_flag, bool skip_flag) override {
        constexpr std::size_t row_bytes = (Columns::row_bytes + ...);
        const bool lend = count <= most_doubled / row_bytes;
        const FragmentStore store = {fragment, count, date_code, leap_flag, skip_flag, lend};
        std::string text;
        const auto write_column = [&](auto& column) {
            column.write(store);
            text = column.error;
            return text.empty();
        };
        std::apply([&](auto&... column) { static_cast<void>((write_column(column) && ...)); },
                   columns_);
        return text;
    }

    /// Makes the cells of `row` writable. Rows beyond the reserved ones grow the columns. Throws
    /// std::bad_alloc.
    void ensure_row(std::size_t row) {
        if (row >= ready_) [[unlikely]] {
            make_ready(row);
        }
    }

    /// The column of that name.
    template<StringLiteral Name>
    auto& column() noexcept {
        return std::get<index_of<Name>()>(columns_);
    }
    template<StringLiteral Name>
    const auto& column() const noexcept {
        return std::get<index_of<Name>()>(columns_);
    }

  private:
    // Rows made ready at a time: few enough that their cells, zeroed now, are still in the cache
    // when assigned.
    static constexpr std::size_t rows_at_once = 512;

    template<StringLiteral Name>
    static consteval std::size_t index_of() {
        constexpr bool equal[] = {(Columns::name == Name)...};
        std::size_t i = 0;
        while (!equal[i]) { // a name without a column does not compile: the index leaves the array
            ++i;
        }
        return i;
    }

    template<std::size_t... I>
    void reserve_columns(std::uint32_t rows, std::uint32_t width, std::index_sequence<I...>) {
        (reserve_column(std::get<I>(columns_), rows, width, memory_[I]), ...);
    }

    template<class Column>
    void reserve_column(Column& column, std::uint32_t rows, std::uint32_t width,
                        ColumnMemory& memory) {
        column.reserve(rows, width, memory);
        Skein::FieldProxy proxy = representation->makeField(
            representation->makeFieldID(Column::name.text()), {}, column.view());
        column.field = proxy;
    }

    void make_ready(std::size_t row) {
        const std::size_t end = row + rows_at_once;
        std::apply([end](auto&... column) { (column.make_ready(end), ...); }, columns_);
        ready_ = end;
    }

    std::tuple<Columns...> columns_;
    Memory& memory_;
    std::size_t ready_ = 0;
};

using ShotsStaging =
    SkeinData<std::tuple<MyData<double, 1, "GPSTime">,
                         MyData<Tern::PhysicalSpace::vector, 1, "Waveforms.DirectionDelta">,
                         MyData<Tern::PhysicalSpace::point, 1, "Positions">>>;

using OppStaging =
    SkeinData<std::tuple<MyData<double, 1, "GPSTime">, MyData<double, 1, "Range">,
                         MyData<float, 1, "Amplitude">, MyData<unsigned char, 1, "Channel">,
                         MyData<Tern::PhysicalSpace::point, 1, "Positions">,
                         MyData<float, 1, "Reflectance">>>;

using WaveformsStaging = SkeinData<
    std::tuple<MyData<double, 1, "GPSTime">, MyData<unsigned short, 1, "FWFLength">,
               MyData<unsigned short, 2, "Waveforms">, MyData<unsigned char, 1, "Channel">,
               MyData<double, 1, "SBL_Time">, MyData<Tern::PhysicalSpace::point, 1, "Positions">>>;

/// The output file of a conversion and the rows that wait to be stored in it.
///
/// Its destruction finishes the file; finish() does the same and tells a failure.
class BundleWriter {
  public:
    /// Creates the file OutDir / (stem of `file` + ".k7"). Throws what the bundle throws.
    BundleWriter(const std::filesystem::path& file, const Input& input);
    BundleWriter(const BundleWriter&) = delete;
    BundleWriter& operator=(const BundleWriter&) = delete;

    /// Drops the staged rows and makes new staging objects for fragments of `frag_size` rows and
    /// waveforms of up to `exported_length` samples; "OPP" and "Waveforms" only if the input asks
    /// for them. Throws what the bundle throws.
    void prepare_fragment(const std::uint32_t& frag_size, const std::uint32_t& exported_length);

    /// Stores the staged rows of "Shots", "OPP" and "Waveforms" as the fragment of that number, and
    /// begins to make them safe against the end of the process: settle() tells when they are. The
    /// rows of the next fragment can be staged meanwhile. Returns the first error text. Throws what
    /// the bundle throws.
    std::string write_fragment(std::uint32_t fragment, std::uint32_t* opp_count,
                               std::uint32_t* wave_count, std::uint32_t* shots_count,
                               const std::int32_t* date_code, const bool* leap_flag,
                               const bool* skip_flag);

    /// Waits until what was stored is safe. Throws what the bundle throws.
    void settle();

    /// Staging objects; each throws std::runtime_error if there is none.
    ShotsStaging& shots() const { return *shots_; }
    OppStaging& opp() const { return *opp_; }
    WaveformsStaging& waveforms() const { return *waveforms_; }
    bool has_opp() const noexcept { return opp_.available(); }
    bool has_waveforms() const noexcept { return waveforms_.available(); }

    /// Grids of the staging objects; empty if there is none.
    Holdfast::StrongPtr<Skein::Grid> shots_grid() const;
    Holdfast::StrongPtr<Skein::Grid> waveforms_grid() const;

    /// First staged time of "Shots", and the last one that is not 0; seconds, 0 if there is none.
    double first_shot_time() const;
    double last_shot_time() const;

    /// Samples of the longest waveform staged since prepare_fragment, 0 without waveforms.
    std::uint32_t longest_waveform() const {
        return has_waveforms() ? waveforms_->column<"Waveforms">().max_length : 0;
    }

    /// Finishes the file. Throws what the bundle throws.
    void finish();
    /// Gives the file up: a finished one of an earlier run stays, and the .part goes unless rows
    /// were stored in it. Nothing can be stored afterwards.
    void abandon() noexcept;
    bool store_failed() const noexcept { return bundle_->failed(); }
    /// Bytes of the file so far.
    std::uint64_t file_size() const { return bundle_->fileSize(); }

  private:
    const Input input_;
    // Before the staging objects, which leave their memory here when they go.
    ShotsStaging::Memory shots_memory_;
    OppStaging::Memory opp_memory_;
    WaveformsStaging::Memory waveforms_memory_;
    Skein::BundlePtr bundle_;
    bool has_rows_ = false;
    Holdfast::StrongPtr<Skein::Slice> slice_;
    Holdfast::StrongPtr<ShotsStaging> shots_;
    Holdfast::StrongPtr<OppStaging> opp_;
    Holdfast::StrongPtr<WaveformsStaging> waveforms_;
};

} // namespace Riegl
