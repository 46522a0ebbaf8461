#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace Skein {

/// What cannot be read: a file, or an object of one. Its text names both and the cause.
class K7ReadError : public std::runtime_error {
  public:
    /// What cannot be read: `object` of `file`, or the file itself where `object` is empty.
    K7ReadError(const std::string& file, std::string object, std::string cause);

    /// Path within the file; empty where the file itself is meant.
    const std::string& object() const noexcept { return object_; }
    /// Why, without file and path.
    const std::string& cause() const noexcept { return cause_; }

  private:
    std::string object_;
    std::string cause_;
};

/// Number types of K7 files, little-endian. `text` for attributes only; `other` is everything that
/// no K7 file has.
enum class K7Type { f64, f32, i32, u32, u16, u8, text, other };

/// As people write it: "f64" and so on.
const char* nameOf(K7Type type) noexcept;

/// The value of an attribute.
struct K7Attribute {
    K7Type type = K7Type::other; ///< `other` where the value is no K7 file's
    bool scalar = false;         ///< one value, not an array of any length
    std::string text;            ///< where type is text; bytes as they stand there
    std::vector<double> numbers; ///< one of a scalar; empty where type is text or other
};

/// One array of a K7 file, open for reading. Outlives the reader it came from, and keeps the file
/// open until then.
class K7Array {
  public:
    /// Takes the open array over.
    K7Array(K7Array&&) noexcept;
    /// Takes the open array over; the one held before is closed.
    K7Array& operator=(K7Array&&) noexcept;
    ~K7Array();

    /// Type of the values, never `text`. `other` cannot be read.
    K7Type type() const noexcept;
    /// Rows, then what a row has; never empty, never more than two.
    const std::vector<std::uint64_t>& shape() const noexcept;
    /// Number of rows, the first number of the shape.
    std::uint64_t rows() const noexcept { return shape().front(); }
    /// Values in a row; 1 where rows are single values.
    std::uint64_t width() const noexcept { return shape().size() < 2 ? 1 : shape()[1]; }
    /// Bytes of a row.
    std::uint64_t rowBytes() const noexcept;

    /// Copies `count` rows from `first` on to memory with room for them. T is the type of the
    /// array: double, float, std::uint16_t or std::uint8_t. Throws K7ReadError where it is not,
    /// where the rows do not exist, or the file does not give them.
    template<class T>
    void read(std::uint64_t first, std::uint64_t count, T* to) const;

  private:
    friend class K7Reader;
    struct State;
    explicit K7Array(std::unique_ptr<State> state) noexcept;
    std::unique_ptr<State> state_;
};

/// Rows of a column that come from one array.
struct K7Piece {
    std::string source;          ///< path of the array
    std::uint64_t first_row = 0; ///< of the column
    std::uint64_t rows = 0;      ///< number of rows, all those of the array
    std::uint64_t width = 0;     ///< values in a row; 1 where rows are single values
};

/// What a column of a grid, or a part of one, says of itself.
struct K7Column {
    K7Type type = K7Type::other;      ///< of its values
    std::vector<std::uint64_t> shape; ///< as the file says: any number of dimensions, or none
    std::vector<K7Piece> pieces;      ///< none where it has no values
};

/// A K7 file, or the .part of one, open for reading. Nothing in the file is believed: links to
/// other files or along a name are not followed, values stored elsewhere or by unknown filters are
/// not read, extents are held against what the file can hold, and lists have limits. So memory
/// stays bounded, whatever the file says.
///
/// Operations throw K7ReadError. Safe between threads, as K7 files being written are: one lock
/// serves the storage library.
class K7Reader {
  public:
    /// Opens the file at `path`, which must be a regular file in the format of the storage library.
    /// Whether it is a K7 file is left to who asks for its slices.
    explicit K7Reader(const std::string& path);
    K7Reader(const K7Reader&) = delete;
    K7Reader& operator=(const K7Reader&) = delete;
    ~K7Reader();

    /// As it was given.
    const std::string& path() const noexcept;
    /// Bytes of the file when it was opened.
    std::uint64_t size() const noexcept;

    /// What stands under a path: `other` is a link that is not followed or a kind that K7 files
    /// do not have.
    enum class Kind { none, group, array, other };
    /// Kind of what stands at `object`: names from the root on, each behind a slash. Where a path
    /// has another form, nothing stands.
    Kind kindOf(const std::string& object) const;

    /// Names in a group, in the order of bytes. Throws beyond most_members.
    std::vector<std::string> members(const std::string& group) const;
    static constexpr std::size_t most_members = std::size_t{1} << 20; ///< of a group

    /// Paths of the slices by rising number.
    std::vector<std::string> slices() const;
    /// Paths of the grids of a slice, in the order of bytes.
    std::vector<std::string> grids(const std::string& slice) const;
    /// Paths of the fields of a grid, in the order of bytes.
    std::vector<std::string> fields(const std::string& grid) const;

    /// What a field has.
    struct Fragments {
        std::vector<std::uint32_t> numbers; ///< rising
        std::vector<std::string> others;    ///< names that are no fragment's
    };
    /// The field's fragments.
    Fragments fragments(const std::string& field) const;

    /// An attribute of a group or array, nothing if it has none of the name. Numbers beyond 2^20
    /// and texts beyond 2^20 bytes throw.
    std::optional<K7Attribute> attribute(const std::string& object, const std::string& name) const;

    /// Opens an array. Throws also where what it says of itself cannot be: no room in the file for
    /// its values, values that were never stored, storage outside of the file, unknown filters,
    /// more than two dimensions, chunks beyond 2^26 bytes, or more than 1024 of them in a row.
    K7Array open(const std::string& array) const;

    /// What an array says of itself as a column over others; no values are read. Throws where its
    /// pieces stand in other files, or are no blocks of rows from whole arrays.
    K7Column column(const std::string& path) const;

    /// The group that has the fields of a grid.
    static std::string chartOf(const std::string& grid);
    /// Path of a field's fragment.
    static std::string fragmentPath(const std::string& field, std::uint32_t number);

  private:
    struct State;
    std::shared_ptr<State> state_;
};

} // namespace Skein
