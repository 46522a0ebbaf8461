#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "bundle_interface/k7_reader.hpp"
#include "bundle_interface/skein/mem_array.hpp"
#include "storage_library.hpp"

namespace Skein {

/// What becomes the whole columns of a file: fields and their fragments, noted while they are
/// written, so that nothing is read back at the end.
///
/// A column is a virtual dataset in the grid, beside its representation, with the field's name and
/// the rows of all its fragments one after the other. Rows narrower than the column's end with
/// zeros. Its dimensions have scales in the grid that netCDF readers take for dimensions: `row`,
/// `sample` for the samples of waveforms, and `xyz`, which has the names of the components. Should
/// columns of a grid differ in a dimension's size, each further size has a scale of its own, as in
/// `row_7`.
///
/// Thousands of fragments would take the library much memory and time at once. A column of more
/// than most_pieces goes over virtual datasets in the grid's group `parts`, and these over
/// most_pieces fragments each.
class K7Columns {
  public:
    static constexpr std::size_t most_pieces = 512;

    /// Notes the field whose group is `path`, a grid's representation's member.
    void addField(const std::string& path, std::string units, std::string long_name);
    /// Notes what the field's arrays are. Of a field without fragments this is all there is. One of
    /// more than two dimensions, as of rows of points, gets no column.
    void describe(const std::string& path, const MemBase& array);
    /// Notes that the array was stored as the dataset `name` of the field.
    void addFragment(const std::string& path, const std::string& name, const MemBase& array);

    /// Makes the columns of all described fields. The file's format bounds must allow for virtual
    /// datasets. Throws storage::Failure.
    void write(storage::Identifier file) const;

  private:
    /// A dataset that gives a column some of its rows.
    struct Piece {
        std::string name; ///< within its group
        std::uint64_t rows;
        std::uint64_t width;
    };
    struct Field {
        std::string units;
        std::string long_name;
        const std::type_info* number = nullptr; ///< null until described
        std::size_t components = 1;
        int rank = 1;
        std::vector<Piece> fragments; ///< those with rows, in the order of storing

        bool isWide() const noexcept { return rank == 2 || components != 1; }
        std::vector<std::uint64_t> shapeOf(std::span<const Piece> pieces) const;
    };
    class Scales;

    static storage::Handle makeVirtual(storage::Identifier file, const std::string& path,
                                       const Field& field, const std::string& group,
                                       std::span<const Piece> pieces);
    static storage::Handle makeColumn(storage::Identifier file, const std::string& grid,
                                      const std::string& path, const Field& field);

    std::map<std::string, Field> fields_; ///< by path
};

/// The pieces of a virtual dataset by its creation list, in the order of the file. Throws
/// storage::Failure for a piece of another file, or one that is not a block of whole rows taken
/// from a whole dataset.
std::vector<K7Piece> piecesOf(storage::Identifier creation);

} // namespace Skein
