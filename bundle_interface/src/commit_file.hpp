#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "write_behind.hpp"

namespace Skein {

/// A file whose structure changes in commits, so that what was committed stays readable whenever
/// the process ends.
///
/// Column data go to the file as they come; they always lie in space that no committed structure
/// refers to. Structure is held back until commit(), which writes it in an order that is safe
/// against the end of the process between any two writes:
///   1. structure in space beyond the committed end, and in space below it that never had any, as
///   the storage library finds between its pieces: nothing refers to it yet;
///   2. the head of the file, which names the file's new end;
///   3. structure changed in place: each piece is one write, and refers only to what steps 1 and 2
///   made.
/// After the first failure nothing is written any more, and the file is cut back to its last
/// commit. The file gets its name with its first commit, where the file system can do that; else an
/// end of the process before leaves a file without content.
///
/// A thread of its own does the writing, in the order given. A commit is on its way when commit()
/// returns and done when settle() does; a failure may show in any later operation.
///
/// Operations return false on failure; error() then says what failed and why. They may be called by
/// one thread at a time, settle() beside the others.
class CommitFile {
  public:
    /// Bytes at the file's start that name its end.
    static constexpr std::uint64_t head_size = 48;

    /// Creates the file, or replaces the one of that name. Throws std::runtime_error with path and
    /// cause, std::system_error without a thread.
    explicit CommitFile(const std::string& path);
    CommitFile(const CommitFile&) = delete;
    CommitFile& operator=(const CommitFile&) = delete;
    ~CommitFile();

    /// Give out space at the end and return its place. Structure that can stay within a page does,
    /// since the end of the process may cut a write between pages. What is last at a commit can
    /// not be extended in place afterwards: another piece names its size.
    std::uint64_t allocateData(std::uint64_t count) noexcept;
    std::uint64_t allocateStructure(std::uint64_t count) noexcept;
    /// End of the space given out.
    std::uint64_t allocated() const noexcept { return allocated_; }
    void setAllocated(std::uint64_t end) noexcept { allocated_ = end; }
    /// Bytes from there to the end of its page; 0 at the start of one.
    std::uint64_t leftInPage() const noexcept;

    bool writeData(std::uint64_t at, const void* bytes, std::size_t count);
    /// Says that the bytes of the loan at `bytes`, should they be the next column data as a whole,
    /// need no copy. Null ends that, and the loan if it was not taken up.
    void offer(const void* bytes, std::shared_ptr<Holdfast::Loan> loan) noexcept;
    bool writeStructure(std::uint64_t at, const void* bytes, std::size_t count);
    /// Bytes beyond the file's end read as zero.
    bool read(std::uint64_t at, void* bytes, std::size_t count);
    /// Writes the structure held back and sets the file's size to the end of the allocated space.
    bool commit();
    /// Waits until all that was written and committed has reached the file.
    bool settle();
    /// Drops all that was not committed; from here on writes succeed without effect.
    void rollBack() noexcept;
    /// Closes the file after checking that it has the committed size.
    bool close();

    /// End of all that was written or held back.
    std::uint64_t end() const noexcept { return end_; }
    std::uint64_t committedEnd() const noexcept { return committed_; }
    std::string error() const;

  private:
    using Bytes = std::vector<std::byte>;

    /// The open file; closed also where the thread of `behind_` cannot be made.
    class Descriptor {
      public:
        explicit Descriptor(int value) noexcept : value_(value) {}
        Descriptor(const Descriptor&) = delete;
        Descriptor& operator=(const Descriptor&) = delete;
        ~Descriptor() { close(); }

        operator int() const noexcept { return value_; }
        bool close() noexcept;

      private:
        int value_;
    };

    bool fail(const char* action, int cause);
    bool nameFile();
    /// Whether a piece of structure changes one that was committed.
    bool isInPlace(std::uint64_t at) const;
    /// Writes the part of the held structure that lies in [from, to) and meets `wanted(place)`.
    template<class Wanted>
    bool writeHeld(std::uint64_t from, std::uint64_t to, Wanted wanted);
    void noteStructure(std::uint64_t from, std::uint64_t to);
    void cutHeld(std::uint64_t from, std::uint64_t to);

    const std::string path_;
    bool named_ = false;
    Descriptor descriptor_;
    WriteBehind behind_; // after the file that it works on
    const void* offered_ = nullptr;
    std::shared_ptr<Holdfast::Loan> offer_;
    std::map<std::uint64_t, Bytes> held_;              // disjoint
    std::map<std::uint64_t, std::uint64_t> structure_; // committed; from each key to its value
    std::uint64_t allocated_ = 0;
    std::uint64_t end_ = 0;
    std::uint64_t committed_ = 0;
    std::atomic<bool> rolled_back_{false};
    std::string error_; ///< of what the caller's thread did itself
};

} // namespace Skein
