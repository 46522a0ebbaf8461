#pragma once

#include <cstdint>

#include "bundle_interface/export.hpp"
#include "bundle_interface/holdfast/reference.hpp"

namespace Skein {

/// How arrays are stored in a new bundle. The host makes it; without one, arrays are stored as they
/// are.
class RXP2K7_EXPORT StorageTransformations
    : public Holdfast::ReferenceBase<StorageTransformations> {
  public:
    StorageTransformations();
    ~StorageTransformations() override;

    std::uint32_t ChunkRows =
        0; ///< rows of a chunk; 0 lets the library choose when a filter asks for chunks
    bool Shuffle = false;           ///< order bytes by significance before deflating
    std::uint32_t DeflateLevel = 0; ///< 0 none, 1 fast to 9 small; larger counts as 9

    /// True if arrays are cut into chunks.
    bool chunked() const noexcept { return ChunkRows != 0 || Shuffle || DeflateLevel != 0; }
};

} // namespace Skein
