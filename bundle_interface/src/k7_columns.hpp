#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

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
class K7Columns {
  public:
    /// Notes the field whose group is `path`, a grid's representation's member.
    void addField(const std::string& path, std::string units, std::string long_name);
    /// Notes what the field's arrays are. Of a field without fragments this is all there is.
    void describe(const std::string& path, const MemBase& array);
    /// Notes that the array was stored as the dataset `name` of the field.
    void addFragment(const std::string& path, const std::string& name, const MemBase& array);

    /// Makes the columns of all described fields. The file's format bounds must allow for virtual
    /// datasets. Throws storage::Failure.
    void write(storage::Identifier file) const;

  private:
    struct Fragment {
        std::string name;
        std::uint64_t rows;
        std::uint64_t width;
    };
    struct Field {
        std::string units;
        std::string long_name;
        const std::type_info* number = nullptr; ///< null until described
        std::size_t components = 1;
        std::size_t rank = 1;
        std::vector<Fragment> fragments; ///< those with values, in the order of storing
        std::uint64_t rows = 0;          ///< of all fragments
        std::uint64_t widest = 0;

        bool isWide() const noexcept { return rank == 2 || components != 1; }
        std::vector<std::uint64_t> shape() const;
    };
    class Scales;

    static void writeColumn(storage::Identifier file, const std::string& grid,
                            const std::string& path, const Field& field, Scales& scales);

    std::map<std::string, Field> fields_; ///< by path
};

/// One piece of a column as its file tells it.
struct ColumnPiece {
    std::string source; ///< path of the dataset that has the values
    std::uint64_t first_row = 0;
    std::uint64_t rows = 0;
    std::uint64_t width = 0; ///< values in a row; 1 where rows are single values
};

/// The pieces of a virtual dataset by its creation list, in the order of the file. Throws
/// storage::Failure for a piece of another file, or one that is not a block of whole rows taken
/// from a whole dataset.
std::vector<ColumnPiece> piecesOf(storage::Identifier creation);

} // namespace Skein
