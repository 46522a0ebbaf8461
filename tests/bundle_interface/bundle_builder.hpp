#pragma once

#include <cstddef>
#include <string>

#include "bundle_interface/skein.hpp"

namespace bundle_test {

using Holdfast::Chunk;
using Holdfast::StrongPtr;

/// A rank-1 array of `rows` elements with element i made by value(i).
template<class T, class Value>
StrongPtr<Skein::MemBase> column(std::size_t rows, Value value) {
    const StrongPtr<Chunk<T>> chunk(new Chunk<T>(rows));
    T* const to = chunk->data();
    for (std::size_t i = 0; i < rows; ++i) {
        to[i] = value(i);
    }
    return StrongPtr<Skein::MemBase>(new Skein::MemArray<1, T>(chunk));
}

/// A rank-2 array whose cells count up from 0, row by row.
inline StrongPtr<Skein::MemBase> counting_rows(std::size_t rows, std::size_t width) {
    const StrongPtr<Chunk<unsigned short>> chunk(new Chunk<unsigned short>(rows * width));
    unsigned short* const to = chunk->data();
    for (std::size_t i = 0; i < rows * width; ++i) {
        to[i] = static_cast<unsigned short>(i);
    }
    return StrongPtr<Skein::MemBase>(new Skein::MemArray<2, unsigned short>(chunk, rows, width));
}

inline StrongPtr<Skein::MemBase> counting(std::size_t rows, double first = 0) {
    return column<double>(rows, [first](std::size_t i) { return first + static_cast<double>(i); });
}

/// The grid "Shots" of the slice at 0 of a bundle.
inline StrongPtr<Skein::Grid> shots_of(Skein::Bundle& bundle) {
    return (*bundle[0.0])["Shots"];
}

inline StrongPtr<Skein::Field> field_of(const StrongPtr<Skein::Grid>& grid,
                                        const std::string& name) {
    const auto representation = grid->makeCartesianRepresentation(3, "StandardCartesianChart3D", 0);
    Skein::FieldProxy proxy = representation->makeField(representation->makeFieldID(name), {}, {});
    return static_cast<StrongPtr<Skein::Field>&>(proxy);
}

inline void store(const StrongPtr<Skein::Field>& field, unsigned fragment,
                  const StrongPtr<Skein::MemBase>& array) {
    field->setPersistentData(array, field->makeFragmentID("Fragment_" + std::to_string(fragment)),
                             Holdfast::Cache::MemCache(), "");
}

} // namespace bundle_test
