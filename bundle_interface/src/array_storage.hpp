#pragma once

#include <cstddef>
#include <vector>

#include "bundle_interface/skein/mem_array.hpp"
#include "bundle_interface/skein/storage_transformations.hpp"

namespace Skein {

/// How the arrays of one file are stored.
struct ArrayStorage {
    ArrayStorage() = default;
    /// `transformations` may be null.
    explicit ArrayStorage(const StorageTransformations* transformations);

    /// Rows of each chunk of the array; 0 if it is stored as it is, as an array without bytes
    /// always is.
    std::size_t chunkRows(const MemBase& array) const;

    bool chunked = false;
    bool shuffle = false;
    unsigned deflate_level = 0;
    std::size_t wanted_rows = 0; ///< of a chunk; 0 for a size of its own choice
};

/// Shape of the array in the file: rows, then the width of an array of rows, then the components
/// of an element that has several.
template<class Size>
std::vector<Size> storedShape(const MemBase& array) {
    std::vector<Size> shape = {array.rows()};
    if (array.rank() == 2) {
        shape.push_back(array.width());
    }
    if (const std::size_t components = array.element().components; components != 1) {
        shape.push_back(components);
    }
    return shape;
}

} // namespace Skein
