#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <typeinfo>

#include "bundle_interface/holdfast/chunk.hpp"
#include "bundle_interface/tern.hpp"

namespace Skein {

/// Describes an element type that fields can store.
struct ElementDescription {
    const char* name;                    ///< as the bundle file names it
    std::size_t components;              ///< 3 for points and vectors, else 1
    std::size_t elementSize;             ///< bytes
    std::size_t componentSize;           ///< bytes
    const std::type_info* type;          ///< of an element
    const std::type_info* componentType; ///< of a component
};

/// Description of T; only double, float, unsigned char, unsigned short, point and vector have one.
template<class T>
struct SkeinType;

#define RXP2K7_SKEIN_TYPE(T, C)                                                                    \
    template<>                                                                                     \
    struct SkeinType<T> {                                                                          \
        using component = C;                                                                       \
        static constexpr std::size_t components = sizeof(T) / sizeof(C);                           \
        static ElementDescription description() {                                                  \
            return {#T, components, sizeof(T), sizeof(C), &typeid(T), &typeid(C)};                 \
        }                                                                                          \
    }
// Elements of one component. NOLINTBEGIN(bugprone-sizeof-expression)
RXP2K7_SKEIN_TYPE(double, double);
RXP2K7_SKEIN_TYPE(float, float);
RXP2K7_SKEIN_TYPE(unsigned char, unsigned char);
RXP2K7_SKEIN_TYPE(unsigned short, unsigned short);
// NOLINTEND(bugprone-sizeof-expression)
RXP2K7_SKEIN_TYPE(Tern::PhysicalSpace::point, double);
RXP2K7_SKEIN_TYPE(Tern::PhysicalSpace::vector, double);
#undef RXP2K7_SKEIN_TYPE

/// Description of the element type `type`. Throws std::runtime_error for a type that has none.
ElementDescription describeElement(const std::type_info& type);

/// An array as a field takes it: elements of one kind in rows, one element a row (rank 1) or
/// `width` (rank 2), without gaps.
class MemBase : public Holdfast::ReferenceBase<MemBase> {
  public:
    /// What an element is.
    virtual ElementDescription element() const = 0;
    /// Number of dimensions: 1 or 2.
    virtual int rank() const noexcept = 0;
    /// Number of rows.
    virtual std::size_t rows() const noexcept = 0;
    /// Elements in a row; 1 where the rank is 1.
    virtual std::size_t width() const noexcept = 0;
    /// The first element; valid as long as the array and as its chunk is not resized.
    virtual const void* raw() const noexcept = 0;
    /// Lends the elements until the caller drops the loan; null if they may change or go as soon as
    /// the call that stores them is over, so that they have to be copied.
    virtual std::shared_ptr<Holdfast::Loan> lend() const { return nullptr; }
};

/// Typed array of rank 1 or 2 that views a chunk and keeps it alive.
template<int Rank, class T>
class MemArray : public MemBase {
    static_assert(Rank == 1 || Rank == 2);

  public:
    /// Rank 1: all elements of `chunk`.
    explicit MemArray(const Holdfast::StrongPtr<Holdfast::Chunk<T>>& chunk)
        : MemArray(chunk, chunk->size(), 1) {
        static_assert(Rank == 1);
    }
    /// The first rows * width elements of `chunk`. Throws std::runtime_error if it has fewer.
    MemArray(const Holdfast::StrongPtr<Holdfast::Chunk<T>>& chunk, std::size_t rows,
             std::size_t width)
        : chunk_(chunk), rows_(rows), width_(width) {
        if (width != 0 && rows > chunk->size() / width) {
            throw std::runtime_error("Skein::MemArray: the chunk is smaller than the array");
        }
    }

    ElementDescription element() const override { return SkeinType<T>::description(); }
    int rank() const noexcept override { return Rank; }
    std::size_t rows() const noexcept override { return rows_; }
    std::size_t width() const noexcept override { return width_; }
    const void* raw() const noexcept override { return chunk_->raw(); }

    /// Unchecked.
    T& operator()(std::size_t row, std::size_t position = 0) const {
        return chunk_->data()[row * width_ + position];
    }

  protected:
    /// What the array views.
    Holdfast::Chunk<T>& chunk() const { return *chunk_; }

  private:
    Holdfast::StrongPtr<Holdfast::Chunk<T>> chunk_;
    std::size_t rows_;
    std::size_t width_;
};

} // namespace Skein
