#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

#include "bundle_interface/holdfast.hpp"
#include "bundle_interface/holdfast/loan.hpp"
#include "bundle_interface/k7_names.hpp"
#include "bundle_interface/rdb2skein.hpp"
#include "bundle_interface/skein.hpp"
#include "string_literal.hpp"

namespace Riegl {

/// The one lock of the process around stores into bundles.
std::mutex& store_mutex();

/// What a fragment's column leaves to the column of the next fragment: memory, so that its pages
/// need not be faulted in again, and the width that waveforms had.
struct ColumnMemory {
    std::shared_ptr<Holdfast::BufferSlot> slot = std::make_shared<Holdfast::BufferSlot>();
    std::uint32_t last_width = 0;
};

/// A column's array that the bundle reads until it is written, without a copy of its own.
template<int Rank, class Element>
class LentArray : public Skein::MemArray<Rank, Element> {
  public:
    /// `urgent`: the next fragment's column goes on in the same memory.
    template<class... Shape>
    explicit LentArray(bool urgent, const Shape&... shape)
        : Skein::MemArray<Rank, Element>(shape...), urgent_(urgent) {}

    std::shared_ptr<Holdfast::Loan> lend() const override { return this->chunk().lend(urgent_); }

  private:
    bool urgent_;
};

/// Bytes of one grid's columns that may wait for the file while the next fragment's columns take
/// other memory. Longer ones are copied piece by piece, so that memory stays bounded.
constexpr std::size_t most_doubled = std::size_t{8} << 20;

/// What is the same for all columns of one store.
struct FragmentStore {
    std::uint32_t fragment;
    std::uint32_t count; ///< rows
    std::int32_t date_code;
    bool leap_flag;
    bool skip_flag;
    bool lend; ///< whether rank-1 columns are short enough to wait in their own memory

    bool nothing_to_store() const noexcept { return count == 0 || skip_flag; }
    std::string name() const { return Skein::k7::fragmentName(fragment); }
};

/// Element types of a column, as the bundle registers them.
struct ColumnDescription {
    std::size_t components;
    std::size_t element_size;   ///< bytes
    std::size_t component_size; ///< bytes
    std::string element;        ///< type names
    std::string component;
    std::string chart; ///< of points and vectors, else "void"
};

template<class Element>
ColumnDescription describe_column() {
    const Skein::ElementDescription e = Skein::SkeinType<Element>::description();
    return {e.components,
            e.elementSize,
            e.componentSize,
            Holdfast::Typename(*e.type),
            Holdfast::Typename(*e.componentType),
            Holdfast::Typename(e.components == 1 ? typeid(void) : typeid(Tern::Cartesian3D))};
}

/// Rows for which memory is reserved ahead, however many a column may get: a fragment size near
/// 2^32 must not reserve memory that its rows never fill.
constexpr std::uint32_t most_rows_ahead = 1U << 17;

/// Capacity that holds `needed` of something, grown so that repeated growth copies each element a
/// bounded number of times.
constexpr std::size_t grown(std::size_t capacity, std::size_t needed) {
    return std::max(needed, capacity * 2);
}

/// Sets the attribute that tells whether leap seconds were added to the field's times, and the
/// field's age.
void mark_leap_seconds(Skein::Field& field, bool leap_flag);

/// What columns of every rank have. Others refer to its place, so it cannot be copied.
class ColumnBase {
  public:
    ColumnBase(const ColumnBase&) = delete;
    ColumnBase& operator=(const ColumnBase&) = delete;

    Holdfast::StrongPtr<Skein::Field> field;
    std::uint32_t rows = 0; ///< capacity; lowered when stored
    std::string error;      ///< empty unless the write failed

  protected:
    ColumnBase() = default;
    ~ColumnBase() = default;
};

/// One column of a grid: an array of elements by row, zero until assigned, and the field that it is
/// stored in.
///
/// make_ready(rows) makes room; then cells are read and written by index without a check.
template<class Element, int Rank, StringLiteral Name>
class MyData;

template<class Element, StringLiteral Name>
class MyData<Element, 1, Name> : public ColumnBase {
  public:
    static constexpr auto name = Name;
    static constexpr std::size_t row_bytes = sizeof(Element);

    ~MyData() {
        if (data.available()) {
            claim_written();
        }
    }

    /// Makes the array for `capacity` rows, which takes memory as rows are made ready.
    void reserve(std::uint32_t capacity, std::uint32_t, ColumnMemory& memory) {
        rows = capacity;
        data = Holdfast::StrongPtr<Holdfast::Chunk<Element>>(
            new Holdfast::Chunk<Element>(0, memory.slot));
        data->reserve(std::min(capacity, most_rows_ahead));
        cells_ = data->data();
        ready_ = 0;
        touched_ = false;
    }

    /// Makes the rows below `end` ready. Throws std::bad_alloc.
    void make_ready(std::size_t end) {
        if (end > data->capacity()) {
            data->reserve(grown(data->capacity(), end), ready_);
            cells_ = data->data();
        }
        data->clearOld(ready_, end);
        ready_ = std::max(ready_, end);
    }

    /// Unchecked; only rows that are ready.
    Element& operator[](std::size_t row) noexcept {
        touched_ = true;
        return cells_[row];
    }
    const Element& operator[](std::size_t row) const noexcept { return cells_[row]; }
    std::size_t ready() const noexcept { return ready_; }

    Holdfast::StrongPtr<Skein::MemBase> view() const {
        return Holdfast::StrongPtr<Skein::MemBase>(new Skein::MemArray<1, Element>(data));
    }

    /// Stores the first rows as a fragment. `error` gets the text of a time that could not be
    /// changed; the array is stored even so. Throws what the bundle throws.
    void write(const FragmentStore& store) {
        if (store.nothing_to_store()) {
            return;
        }
        const auto id = field->makeFragmentID(store.name());
        make_ready(store.count);
        claim_written();
        data->resize(store.count);
        rows = std::min(rows, store.count);
        data->await(store.count); // an earlier store of this column may still be on its way
        modifyGPSTime(error, store.date_code, data, Name.text(), store.leap_flag);
        const auto array =
            store.lend ? Holdfast::StrongPtr<Skein::MemBase>(new LentArray<1, Element>(false, data))
                       : view();
        const std::lock_guard lock(store_mutex());
        field->setPersistentData(array, id, Holdfast::Cache::MemCache(), "");
        if constexpr (Name == StringLiteral("GPSTime")) {
            mark_leap_seconds(*field, store.leap_flag);
        }
    }

    const ColumnDescription description = describe_column<Element>();
    Holdfast::StrongPtr<Holdfast::Chunk<Element>> data;
    std::uint32_t width = 1;

  private:
    /// Tells the array which of its cells were written through operator[].
    void claim_written() noexcept {
        if (touched_) {
            data->resizeUnfilled(ready_);
        }
    }

    Element* cells_ = nullptr;
    std::size_t ready_ = 0;
    bool touched_ = false;
};

/// The column of waveforms: one row of samples a record.
///
/// Rows lie side by side, as wide as the longest waveform so far needs, so that neither memory nor
/// a copy is spent on samples that no waveform has.
template<StringLiteral Name>
class MyData<unsigned short, 2, Name> : public ColumnBase {
  public:
    static constexpr auto name = Name;
    static constexpr std::size_t row_bytes = 0; // the next fragment goes on in the same memory

    ~MyData() {
        if (data.available()) {
            data->resizeUnfilled(assigned_ * stride_);
        }
    }

    void reserve(std::uint32_t capacity, std::uint32_t columns, ColumnMemory& memory) {
        rows = capacity;
        width = columns;
        max_length = 0;
        memory_ = &memory;
        stride_ = std::min(width, memory.last_width);
        data = Holdfast::StrongPtr<Holdfast::Chunk<unsigned short>>(
            new Holdfast::Chunk<unsigned short>(0, memory.slot, Holdfast::LentMemory::take));
        assigned_ = 0;
        ready_ = 0;
        writable_ = 0;
    }

    /// Makes the rows below `end` ready. Throws std::bad_alloc.
    void make_ready(std::size_t end) {
        ready_ = std::max(ready_, end);
        make_room(ready_ * stride_);
    }

    /// Writes the first `count` samples of a row that is ready, at most `width`, and zeros behind
    /// them. Throws std::bad_alloc.
    void assign(std::size_t row, const unsigned short* samples, std::size_t count) {
        count = std::min<std::size_t>(count, width);
        if (count > stride_) {
            widen(std::min<std::size_t>(width, std::max(count, 2 * stride_)));
        }
        await((row + 1) * stride_);
        clear_rows(row);
        unsigned short* const to = cells_ + row * stride_;
        std::copy_n(samples, count, to);
        std::fill(to + count, to + stride_, static_cast<unsigned short>(0));
        assigned_ = std::max(assigned_, row + 1);
    }

    /// The sample at a position of a row; 0 where none was written.
    unsigned short cell(std::size_t row, std::size_t position) const noexcept {
        return row < assigned_ && position < stride_ ? cells_[row * stride_ + position]
                                                     : static_cast<unsigned short>(0);
    }

    Holdfast::StrongPtr<Skein::MemBase> view() const {
        return Holdfast::StrongPtr<Skein::MemBase>(
            new Skein::MemArray<2, unsigned short>(data, 0, 0));
    }

    /// Stores the first rows as a fragment, as wide as max_length says and at most `width`.
    /// Throws what the bundle throws.
    void write(const FragmentStore& store) {
        if (store.nothing_to_store()) {
            return;
        }
        const auto id = field->makeFragmentID(store.name());
        shrink(store.count);
        const Holdfast::StrongPtr<Skein::MemBase> view(
            new LentArray<2, unsigned short>(true, data, store.count, stride_));
        array = view;
        const std::lock_guard lock(store_mutex());
        field->setPersistentData(array, id, Holdfast::Cache::MemCache(), "");
    }

    const ColumnDescription description = describe_column<unsigned short>();
    Holdfast::StrongPtr<Holdfast::Chunk<unsigned short>> data;
    Holdfast::StrongPtr<Skein::MemBase> array; ///< what was stored last
    std::uint32_t width = 0;                   ///< samples a row may have; lowered when stored
    std::uint32_t max_length = 0;              ///< longest waveform seen, before it was cut

  private:
    void make_room(std::size_t cells) {
        if (cells > data->capacity()) {
            data->reserve(grown(data->capacity(), cells), assigned_ * stride_);
        }
        cells_ = data->data();
    }

    /// Waits until the file has read the cells below `end`, which the last fragment lent.
    void await(std::size_t end) noexcept {
        if (end > writable_) [[unlikely]] {
            writable_ = data->await(end);
        }
    }

    /// Zeroes the rows that were left out below `row`.
    void clear_rows(std::size_t row) noexcept {
        if (row > assigned_) {
            await(row * stride_);
            std::fill(cells_ + assigned_ * stride_, cells_ + row * stride_,
                      static_cast<unsigned short>(0));
            assigned_ = row;
        }
    }

    void widen(std::size_t stride) {
        make_room(std::max(ready_, assigned_) * stride);
        await(assigned_ * stride);
        for (std::size_t row = assigned_; row-- > 0;) {
            unsigned short* const to = cells_ + row * stride;
            std::memmove(to, cells_ + row * stride_, stride_ * sizeof *to);
            std::fill(to + stride_, to + stride, static_cast<unsigned short>(0));
        }
        stride_ = stride;
    }

    void narrow(std::size_t stride) noexcept {
        for (std::size_t row = 1; row < assigned_; ++row) {
            std::memmove(cells_ + row * stride, cells_ + row * stride_, stride * sizeof *cells_);
        }
        stride_ = stride;
    }

    /// Brings the array to exactly `count` rows of the width to be stored.
    void shrink(std::uint32_t count) {
        rows = std::min(rows, count);
        width = std::min(width, max_length);
        make_ready(count);
        if (width > stride_) {
            widen(width);
        } else if (width < stride_) {
            narrow(width);
        }
        clear_rows(count);
        data->resizeUnfilled(std::max<std::size_t>(assigned_, count) * stride_);
        memory_->last_width = width;
    }

    ColumnMemory* memory_ = nullptr;
    unsigned short* cells_ = nullptr;
    std::size_t stride_ = 0;
    std::size_t assigned_ = 0;
    std::size_t ready_ = 0;
    std::size_t writable_ = 0; ///< cells known to be lent to nobody
};

} // namespace Riegl
