#include "k7_columns.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include <hdf5.h>

namespace Skein {

using storage::check;
using storage::Failure;
using storage::Handle;

namespace {

constexpr const char* this_file = ".";
constexpr const char* scale_class = "DIMENSION_SCALE";
constexpr std::array<const char*, 3> component_names = {"x", "y", "z"};

/// What netCDF readers know a scale by that stands for nothing but the size of a dimension.
std::string nameOfPlainScale(std::uint64_t size) {
    std::array<char, 80> text = {};
    std::snprintf(text.data(), text.size(),
                  "This is a netCDF dimension but not a netCDF variable.%10llu",
                  static_cast<unsigned long long>(size));
    return text.data();
}

Handle datasetCreation() {
    Handle list(H5Pcreate(H5P_DATASET_CREATE), H5Pclose);
    check(H5Pset_obj_track_times(list, false)); // reruns give the same bytes
    return list;
}

Handle simpleSpace(const std::vector<std::uint64_t>& shape) {
    const std::vector<hsize_t> extent(shape.begin(), shape.end());
    return Handle(H5Screate_simple(static_cast<int>(extent.size()), extent.data(), nullptr),
                  H5Sclose);
}

/// An attribute of a text with its length fixed, as the readers of scales expect theirs.
void setFixedText(hid_t object, const char* name, const std::string& text) {
    const Handle type(H5Tcopy(H5T_C_S1), H5Tclose);
    check(H5Tset_size(type, text.size() + 1));
    const Handle space(H5Screate(H5S_SCALAR), H5Sclose);
    storage::setAttribute(object, name, {type, type}, space, text.c_str());
}

std::string parentOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

} // namespace

/// The scales of one grid. They name the datasets that use them, and these name them.
class K7Columns::Scales {
  public:
    Scales(hid_t file, std::string grid) : file_(file), grid_(std::move(grid)) {}

    /// Gives each dimension of a column its scale: that of the given name and the column's size.
    void attach(hid_t column, const std::vector<const char*>& names,
                const std::vector<std::uint64_t>& shape) {
        std::vector<hobj_ref_t> scales(shape.size());
        std::vector<hvl_t> list(shape.size());
        for (std::size_t i = 0; i < shape.size(); ++i) {
            Scale& scale = scaleOf(names[i], shape[i]);
            scales[i] = referenceTo(scale.dataset);
            list[i] = {1, &scales[i]};
            scale.uses.push_back({referenceTo(column), static_cast<std::int32_t>(i), 0});
        }
        const Handle type(H5Tvlen_create(H5T_STD_REF_OBJ), H5Tclose);
        const Handle space = simpleSpace({list.size()});
        storage::setAttribute(column, "DIMENSION_LIST", {type, type}, space, list.data());
    }

    /// Writes down who uses the scales.
    void finish() {
        const Handle type(H5Tcreate(H5T_COMPOUND, sizeof(Use)), H5Tclose);
        check(H5Tinsert(type, "dataset", HOFFSET(Use, column), H5T_STD_REF_OBJ));
        check(H5Tinsert(type, "dimension", HOFFSET(Use, dimension), H5T_STD_I32LE));
        for (auto& [key, scale] : scales_) {
            const Handle space = simpleSpace({scale.uses.size()});
            storage::setAttribute(scale.dataset, "REFERENCE_LIST", {type, type}, space,
                                  scale.uses.data());
            scale.dataset.close();
        }
    }

  private:
    struct Use {
        hobj_ref_t column;
        std::int32_t dimension;
        std::int32_t padding; // stands in the file as well
    };
    struct Scale {
        Handle dataset;
        std::vector<Use> uses;
    };

    static hobj_ref_t referenceTo(hid_t object) {
        hobj_ref_t reference = 0;
        check(H5Rcreate(&reference, object, ".", H5R_OBJECT, H5I_INVALID_HID));
        return reference;
    }

    Scale& scaleOf(const std::string& name, std::uint64_t size) {
        const auto known = scales_.find({name, size});
        if (known != scales_.end()) {
            return known->second;
        }
        const bool taken = std::any_of(scales_.begin(), scales_.end(),
                                       [&](const auto& s) { return s.first.first == name; });
        std::string path = std::string(grid_).append("/").append(name);
        if (taken) {
            path.append("_").append(std::to_string(size));
        }
        const bool named = name == "xyz" && size == component_names.size();
        Handle dataset = named ? makeNamedScale(path) : makePlainScale(path, size);
        return scales_.emplace(std::pair(name, size), Scale{std::move(dataset), {}}).first->second;
    }

    Handle makeScale(const std::string& path, hid_t type, std::uint64_t size,
                     const std::string& name) {
        const Handle space = simpleSpace({size});
        Handle dataset(H5Dcreate2(file_, path.c_str(), type, space, H5P_DEFAULT, datasetCreation(),
                                  H5P_DEFAULT),
                       H5Dclose);
        setFixedText(dataset, "CLASS", scale_class);
        setFixedText(dataset, "NAME", name);
        return dataset;
    }

    /// Without values; it takes no room whatever its size.
    Handle makePlainScale(const std::string& path, std::uint64_t size) {
        return makeScale(path, H5T_IEEE_F32LE, size, nameOfPlainScale(size));
    }

    Handle makeNamedScale(const std::string& path) {
        const Handle type = storage::textType();
        Handle dataset = makeScale(path, type, component_names.size(), "xyz");
        check(H5Dwrite(dataset, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, component_names.data()));
        return dataset;
    }

    hid_t file_;
    std::string grid_;
    std::map<std::pair<std::string, std::uint64_t>, Scale> scales_; ///< by name and size
};

std::vector<std::uint64_t> K7Columns::Field::shapeOf(std::span<const Piece> pieces) const {
    std::uint64_t rows = 0;
    std::uint64_t widest = 0;
    for (const Piece& piece : pieces) {
        rows += piece.rows;
        widest = std::max(widest, piece.width);
    }
    if (!isWide()) {
        return {rows};
    }
    return {rows, rank == 2 ? widest : components};
}

void K7Columns::addField(const std::string& path, std::string units, std::string long_name) {
    Field& field = fields_[path];
    field.units = std::move(units);
    field.long_name = std::move(long_name);
}

void K7Columns::describe(const std::string& path, const MemBase& array) {
    Field& field = fields_[path];
    const ElementDescription element = array.element();
    if (array.rank() == 2 && element.components != 1) {
        return;
    }
    field.number = element.componentType;
    field.components = element.components;
    field.rank = array.rank();
}

void K7Columns::addFragment(const std::string& path, const std::string& name,
                            const MemBase& array) {
    Field& field = fields_[path];
    if (array.rows() != 0) {
        field.fragments.push_back({name, array.rows(), array.width()});
    }
}

/// Makes a virtual dataset over pieces that stand in `group`.
Handle K7Columns::makeVirtual(hid_t file, const std::string& path, const Field& field,
                              const std::string& group, std::span<const Piece> pieces) {
    const Handle space = simpleSpace(field.shapeOf(pieces));
    const Handle creation = datasetCreation();
    hsize_t first_row = 0;
    for (const Piece& piece : pieces) {
        const std::vector<std::uint64_t> block = field.shapeOf({&piece, 1});
        const std::array<hsize_t, 2> start = {std::exchange(first_row, first_row + piece.rows), 0};
        const std::array<hsize_t, 2> count = {block.front(), block.back()};
        if (block.back() == 0) {
            continue;
        }
        check(H5Sselect_hyperslab(space, H5S_SELECT_SET, start.data(), nullptr, count.data(),
                                  nullptr));
        check(H5Pset_virtual(creation, space, this_file, (group + "/" + piece.name).c_str(),
                             simpleSpace(block)));
    }
    check(H5Sselect_all(space));
    return Handle(H5Dcreate2(file, path.c_str(), storage::typesOf(*field.number).file, space,
                             H5P_DEFAULT, creation, H5P_DEFAULT),
                  H5Dclose);
}

Handle K7Columns::makeColumn(hid_t file, const std::string& grid, const std::string& path,
                             const Field& field) {
    const std::string name = path.substr(path.rfind('/') + 1);
    const std::string column = grid + "/" + name;
    std::span<const Piece> fragments = field.fragments;
    if (fragments.size() <= most_pieces) {
        return makeVirtual(file, column, field, path, fragments);
    }
    const std::string group = grid + "/parts";
    if (check(H5Lexists(file, group.c_str(), H5P_DEFAULT)) == 0) {
        const Handle creation(H5Pcreate(H5P_GROUP_CREATE), H5Pclose);
        check(H5Pset_obj_track_times(creation, false));
        Handle(H5Gcreate2(file, group.c_str(), H5P_DEFAULT, creation, H5P_DEFAULT), H5Gclose)
            .close();
    }
    std::vector<Piece> parts;
    while (!fragments.empty()) {
        const auto some = fragments.first(std::min(most_pieces, fragments.size()));
        fragments = fragments.subspan(some.size());
        const std::vector<std::uint64_t> shape = field.shapeOf(some);
        parts.push_back({name + "_" + std::to_string(parts.size()), shape.front(), shape.back()});
        makeVirtual(file, std::string(group).append("/").append(parts.back().name), field, path,
                    some)
            .close();
    }
    return makeVirtual(file, column, field, group, parts);
}

void K7Columns::write(hid_t file) const {
    for (auto at = fields_.begin(); at != fields_.end();) {
        const std::string grid = parentOf(parentOf(at->first));
        Scales scales(file, grid);
        for (; at != fields_.end() && parentOf(parentOf(at->first)) == grid; ++at) {
            const Field& field = at->second;
            if (field.number == nullptr) {
                continue;
            }
            Handle column = makeColumn(file, grid, at->first, field);
            storage::setText(column, "units", field.units);
            storage::setText(column, "long_name", field.long_name);
            scales.attach(column, {"row", field.rank == 2 ? "sample" : "xyz"},
                          field.shapeOf(field.fragments));
            column.close();
        }
        scales.finish();
    }
}

namespace {

/// A text that the library copies into room it is given, after it told the length.
template<class Get>
std::string textBy(Get&& get) {
    constexpr ssize_t longest = 4096;
    const ssize_t length = get(nullptr, 0);
    check(static_cast<herr_t>(length < 0 ? -1 : 0));
    if (length > longest) {
        throw Failure{"the name of a piece is too long"};
    }
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    check(static_cast<herr_t>(get(text.data(), text.size()) < 0 ? -1 : 0));
    text.pop_back();
    return text;
}

using Extent = std::array<hsize_t, 2>;

struct Block {
    Extent first = {0, 0};
    Extent count = {1, 1};
};

/// What is selected, which must be a block.
Block blockOf(hid_t space) {
    Block block;
    Extent last = {0, 0};
    const int rank = check(H5Sget_simple_extent_ndims(space));
    if (rank < 1 || rank > 2 || H5Sget_select_bounds(space, block.first.data(), last.data()) < 0) {
        throw Failure{"a piece of it is no block of rows"};
    }
    for (std::size_t i = 0; i < last.size(); ++i) {
        block.count[i] = last[i] - block.first[i] + 1;
    }
    if (H5Sget_select_npoints(space) != static_cast<hssize_t>(block.count[0] * block.count[1])) {
        throw Failure{"a piece of it is no block of rows"};
    }
    return block;
}

K7Piece pieceOf(hid_t creation, std::size_t index) {
    const std::string file = textBy([&](char* to, std::size_t room) {
        return H5Pget_virtual_filename(creation, index, to, room);
    });
    if (file != this_file) {
        throw Failure{"its values are stored elsewhere"};
    }
    K7Piece piece;
    piece.source = textBy([&](char* to, std::size_t room) {
        return H5Pget_virtual_dsetname(creation, index, to, room);
    });
    const Handle space(H5Pget_virtual_vspace(creation, index), H5Sclose);
    const Handle source(H5Pget_virtual_srcspace(creation, index), H5Sclose);
    const Block block = blockOf(space);
    piece.first_row = block.first[0];
    piece.rows = block.count[0];
    piece.width = block.count[1];
    // The extent of a dataset taken as a whole is not told here.
    const bool whole = H5Sget_select_type(source) == H5S_SEL_ALL;
    const Block taken = whole ? Block{{0, 0}, block.count} : blockOf(source);
    if (block.first[1] != 0 || taken.first != Extent{0, 0} || taken.count != block.count) {
        throw Failure{"a piece of it does not have whole rows from the first on"};
    }
    return piece;
}

} // namespace

std::vector<K7Piece> piecesOf(hid_t creation) {
    std::size_t count = 0;
    check(H5Pget_virtual_count(creation, &count));
    if (count > K7Reader::most_members) {
        throw Failure{"it has too many pieces"};
    }
    std::vector<K7Piece> pieces;
    for (std::size_t i = 0; i < count; ++i) {
        pieces.push_back(pieceOf(creation, i));
    }
    return pieces;
}

} // namespace Skein
