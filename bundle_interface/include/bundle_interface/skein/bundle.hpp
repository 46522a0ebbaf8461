#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "bundle_interface/holdfast/reference.hpp"
#include "bundle_interface/skein/grid.hpp"
#include "bundle_interface/skein/storage_transformations.hpp"

/// The bundle data model: a file of slices, their grids, fields and fragments.
namespace Skein {

/// What a bundle file says of its writer: the program and its version.
const char* bundleCreator() noexcept;

/// A file of slices.
///
/// The file grows as PATH.part and gets its name when it is finished, so that PATH is always a
/// whole file, and one of an earlier run stays until then. flush() makes everything stored so far
/// readable even if the process is killed at any later moment. After the first failed store the
/// .part stays as the last flush left it, each later store fails with the same text, and the file
/// is never renamed.
///
/// Operations that fail throw std::runtime_error with the action, the path and the cause.
class Bundle : public Holdfast::ReferenceBase<Bundle> {
  public:
    Bundle();
    /// Finishes the file if that was not done; a failure is told on the console.
    ~Bundle() override;

    /// Creates PATH.part, overwriting one of an earlier run. `transformations` may be empty. A
    /// second call is an error.
    void bindToNew(const std::string& path,
                   const Holdfast::StrongPtr<StorageTransformations>& transformations);

    /// The slice of that time, made in the file if new.
    Holdfast::StrongPtr<Slice> operator[](double time);

    /// Makes everything stored so far safe against the end of the process. Call it when a fragment
    /// is complete.
    void flush();

    /// With write-behind, off at first, stores and flushes return while their bytes are on the way
    /// to the file, so that the caller can prepare what comes next; a failure may then show in any
    /// later operation. settle() waits until all has arrived.
    void setWriteBehind(bool on);
    /// Waits until all that was stored has arrived. Throws what failed meanwhile.
    void settle();

    /// Flushes, closes and renames the file to its name. Nothing can be stored afterwards. Calls
    /// after the first do nothing, or throw again if the first failed or a store did.
    void finish();

    /// Closes the file and leaves it as PATH.part, as the last flush left it. Nothing can be stored
    /// afterwards.
    void abandon() noexcept;

    /// As abandon, and removes PATH.part. Does nothing once the file was finished.
    void discard() noexcept;

    /// Size of the file in bytes as it is now, 0 before bindToNew.
    std::uint64_t fileSize() const;

    /// True if a store, a flush or the finish failed.
    bool failed() const noexcept;

    /// The name that the finished file has, empty before bindToNew.
    const std::string& path() const noexcept { return path_; }

  private:
    std::shared_ptr<K7File> file_;
    std::string path_;
    std::map<double, Holdfast::StrongPtr<Slice>> slices_;
};

/// Shared holder of a bundle. The last holder releases the bundle, which finishes its file.
class BundlePtr {
  public:
    /// Takes ownership.
    explicit BundlePtr(Bundle* bundle) : bundle_(bundle) {}

    /// The bundle for writing. Throws std::runtime_error if there is none.
    Bundle& create() { return *bundle_; }
    /// The bundle. Throws std::runtime_error if there is none.
    Bundle* operator->() const { return bundle_.operator->(); }
    /// The bundle. Throws std::runtime_error if there is none.
    Bundle& operator*() const { return *bundle_; }

  private:
    Holdfast::StrongPtr<Bundle> bundle_;
};

} // namespace Skein
