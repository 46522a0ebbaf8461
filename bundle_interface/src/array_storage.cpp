#include "array_storage.hpp"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace Skein {

namespace {

constexpr std::size_t default_chunk_bytes = std::size_t{1} << 20;
constexpr std::size_t largest_chunk_bytes = std::numeric_limits<std::uint32_t>::max();

} // namespace

ArrayStorage::ArrayStorage(const StorageTransformations* transformations) {
    if (transformations != nullptr) {
        chunked = transformations->chunked();
        shuffle = transformations->Shuffle;
        deflate_level = std::min(transformations->DeflateLevel, std::uint32_t{9});
        wanted_rows = transformations->ChunkRows;
    }
}

std::size_t ArrayStorage::chunkRows(const MemBase& array) const {
    const std::size_t row_bytes = array.width() * array.element().elementSize;
    if (!chunked || array.rows() == 0 || row_bytes == 0 || row_bytes > largest_chunk_bytes) {
        return 0;
    }
    const std::size_t wanted =
        wanted_rows != 0 ? wanted_rows : std::max<std::size_t>(1, default_chunk_bytes / row_bytes);
    return std::min({wanted, array.rows(), largest_chunk_bytes / row_bytes});
}

} // namespace Skein
