#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <variant>

#include "bundle_interface/holdfast/attributes.hpp"
#include "bundle_interface/skein/mem_array.hpp"
#include "bundle_interface/skein/storage_transformations.hpp"

namespace Skein {

/// A K7 file being written. Paths name groups within it. Safe between threads, also between files,
/// because one lock serves the storage library, which has none of its own.
///
/// Operations throw std::runtime_error with the action, the file's path and the cause. The first
/// failure of any of them is final: the file is rolled back to the last flush, and each later
/// operation throws the same text.
class K7File {
  public:
    using Scalar = std::variant<double, std::uint32_t, std::int32_t, std::uint16_t>;

    /// Creates `path`.part. `transformations` may be null. A failure leaves no .part.
    K7File(const std::string& path, const StorageTransformations* transformations);
    K7File(const K7File&) = delete;
    K7File& operator=(const K7File&) = delete;
    /// Abandons the file unless it was finished.
    ~K7File();

    /// With it, operations return while their bytes are on the way to the file, and a failure may
    /// show in any later one.
    void setWriteBehind(bool on) noexcept;

    /// How many members a group will have.
    enum class Members { few, many };

    /// Makes the group if it is not there. Its parent is.
    void makeGroup(const std::string& path, Members members = Members::few);
    /// Set or replace an attribute of a group.
    void setScalar(const std::string& path, const std::string& name, const Scalar& value);
    void setText(const std::string& path, const std::string& name, const std::string& text);
    void setArray(const std::string& path, const std::string& name,
                  const Holdfast::ChunkBase& values);
    /// Stores the array as the dataset `name` of a group, from the array's own memory.
    void store(const std::string& path, const std::string& name, const MemBase& array);
    /// Has the finished file offer what is stored in the group `path`, a member of a member of a
    /// grid, as one column of the grid. Without describeColumn it will not; that tells what the
    /// arrays are, and counts also if none comes.
    void addColumn(const std::string& path, const std::string& units, const std::string& long_name);
    void describeColumn(const std::string& path, const MemBase& array);

    /// Makes all of the above safe against the end of the process; with write-behind begins to.
    void flush();
    /// Waits until all that was stored and flushed has reached the file.
    void settle();
    /// Flushes, adds the columns, closes and gives the file its name. Columns that the storage
    /// library refuses are told on the console, and the file is finished without any. Does nothing
    /// after success or after abandon.
    void finish();
    /// Closes without finishing; the .part stays as the last flush left it.
    void abandon() noexcept;
    /// Abandons the file and removes the .part. Does nothing after success.
    void discard() noexcept;

    /// Bytes of the file.
    std::uint64_t size() const;
    bool failed() const noexcept;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

/// Stores the attributes of the group `path` of `file`.
Holdfast::Attributes attributesOf(const std::shared_ptr<K7File>& file, const std::string& path);

/// `parent` and `name` joined. Throws std::runtime_error for a name that cannot stand in a path.
std::string memberPath(const std::string& parent, const std::string& name);

} // namespace Skein
