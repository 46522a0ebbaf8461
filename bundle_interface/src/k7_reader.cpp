#include "bundle_interface/k7_reader.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <limits>
#include <mutex>
#include <system_error>
#include <type_traits>
#include <utility>

#include <hdf5.h>

#include "bundle_interface/k7_names.hpp"
#include "k7_columns.hpp"
#include "storage_library.hpp"

namespace Skein {

namespace {

using storage::check;
using storage::Failure;
using storage::Handle;
using storage::libraryMutex;
using storage::Quiet;

constexpr std::uint64_t most_attribute_values = 1U << 20U;
constexpr std::uint64_t largest_chunk_bytes = 1U << 26U;
// The library takes some KiB for each chunk that one call reads from.
constexpr std::uint64_t most_chunks_at_once = 1024;
constexpr auto all_rows = std::numeric_limits<std::uint64_t>::max();
// Deflate makes a byte of at most 1032, and shuffle none.
constexpr std::uint64_t most_values_per_byte = 1040;

/// Runs one operation under the lock, and gives its failure a place.
template<class Run>
auto perform(const std::string& file, const std::string& object, Run&& run) {
    const std::lock_guard lock(libraryMutex());
    const Quiet quiet;
    try {
        return run();
    } catch (const Failure& f) {
        throw K7ReadError(file, object, f.cause);
    }
}

struct NumberType {
    K7Type type;
    const char* name;
    hid_t file;
    hid_t memory;
};

/// Looked up at each call, since the library makes its types when it starts.
std::array<NumberType, 6> numberTypes() {
    return {{{K7Type::f64, "f64", H5T_IEEE_F64LE, H5T_NATIVE_DOUBLE},
             {K7Type::f32, "f32", H5T_IEEE_F32LE, H5T_NATIVE_FLOAT},
             {K7Type::i32, "i32", H5T_STD_I32LE, H5T_NATIVE_INT32},
             {K7Type::u32, "u32", H5T_STD_U32LE, H5T_NATIVE_UINT32},
             {K7Type::u16, "u16", H5T_STD_U16LE, H5T_NATIVE_UINT16},
             {K7Type::u8, "u8", H5T_STD_U8LE, H5T_NATIVE_UINT8}}};
}

K7Type typeOf(hid_t type) {
    if (check(H5Tget_class(type)) == H5T_STRING) {
        return K7Type::text;
    }
    for (const NumberType& known : numberTypes()) {
        if (check(H5Tequal(type, known.file)) > 0) {
            return known.type;
        }
    }
    return K7Type::other;
}

hid_t memoryTypeOf(K7Type type) {
    for (const NumberType& known : numberTypes()) {
        if (known.type == type) {
            return known.memory;
        }
    }
    throw Failure{"no type to read"};
}

template<class T>
constexpr K7Type type_of_number = std::is_same_v<T, double>          ? K7Type::f64
                                  : std::is_same_v<T, float>         ? K7Type::f32
                                  : std::is_same_v<T, std::uint16_t> ? K7Type::u16
                                                                     : K7Type::u8;

std::vector<hsize_t> extentOf(hid_t space) {
    const int rank = check(H5Sget_simple_extent_ndims(space));
    std::vector<hsize_t> shape(static_cast<std::size_t>(rank));
    check(H5Sget_simple_extent_dims(space, shape.data(), nullptr));
    return shape;
}

/// The product, or the greatest number where it does not fit.
std::uint64_t product(std::uint64_t a, std::uint64_t b) {
    constexpr auto most = std::numeric_limits<std::uint64_t>::max();
    return b != 0 && a > most / b ? most : a * b;
}

std::uint64_t productOf(const std::vector<hsize_t>& factors, std::uint64_t first = 1) {
    for (const hsize_t f : factors) {
        first = product(first, f);
    }
    return first;
}

extern "C" {
/// Appends a name to the list, up to the limit.
static herr_t keepName(hid_t, const char* name, const H5L_info_t*, void* list) {
    try {
        auto& names = *static_cast<std::vector<std::string>*>(list);
        if (names.size() == K7Reader::most_members) {
            return 1;
        }
        names.emplace_back(name);
        return 0;
    } catch (...) {
        return -1;
    }
}
}

std::string textOf(hid_t attribute, hid_t type) {
    if (check(H5Tis_variable_str(type)) > 0) {
        char* text = nullptr;
        const Handle memory(H5Tcopy(type), H5Tclose);
        check(H5Aread(attribute, memory, &text));
        const std::unique_ptr<char, herr_t (*)(void*)> owner(text, H5free_memory);
        const std::string_view all(text == nullptr ? "" : text);
        if (all.size() > most_attribute_values) {
            throw Failure{"the text is too long"};
        }
        return std::string(all);
    }
    const std::size_t size = H5Tget_size(type);
    if (size > most_attribute_values) {
        throw Failure{"the text is too long"};
    }
    std::string text(size, '\0');
    check(H5Aread(attribute, type, text.data()));
    return text.substr(0, text.find('\0'));
}

K7Attribute valueOf(hid_t attribute) {
    const Handle type(H5Aget_type(attribute), H5Tclose);
    const Handle space(H5Aget_space(attribute), H5Sclose);
    K7Attribute value;
    value.type = typeOf(type);
    value.scalar = check(H5Sget_simple_extent_type(space)) == H5S_SCALAR;
    const hssize_t count = check(H5Sget_simple_extent_npoints(space));
    if (static_cast<std::uint64_t>(count) > most_attribute_values) {
        throw Failure{"the attribute has " + std::to_string(count) + " values"};
    }
    if (value.type == K7Type::text) {
        if (value.scalar) {
            value.text = textOf(attribute, type);
        }
    } else if (value.type != K7Type::other) {
        value.numbers.resize(static_cast<std::size_t>(count));
        if (count != 0) {
            check(H5Aread(attribute, H5T_NATIVE_DOUBLE, value.numbers.data()));
        }
    }
    return value;
}

/// Throws where values would pass through anything but the filters that K7 files use.
void checkFilters(hid_t creation) {
    const int count = check(H5Pget_nfilters(creation));
    for (int i = 0; i < count; ++i) {
        unsigned flags = 0;
        std::size_t values = 0;
        const H5Z_filter_t filter = H5Pget_filter2(creation, static_cast<unsigned>(i), &flags,
                                                   &values, nullptr, 0, nullptr, nullptr);
        check(filter);
        if (filter != H5Z_FILTER_DEFLATE && filter != H5Z_FILTER_SHUFFLE &&
            filter != H5Z_FILTER_FLETCHER32) {
            throw Failure{"its values are stored by the unknown filter " + std::to_string(filter)};
        }
    }
}

/// Throws where the chunks are not what they should be. Gives the rows that one call may read.
std::uint64_t checkChunks(hid_t dataset, hid_t creation, const std::vector<hsize_t>& shape,
                          std::uint64_t element_bytes) {
    std::vector<hsize_t> chunk(shape.size());
    check(H5Pget_chunk(creation, static_cast<int>(chunk.size()), chunk.data()));
    if (productOf(chunk, element_bytes) > largest_chunk_bytes) {
        throw Failure{"its chunks are too large"};
    }
    const auto along = [&](std::size_t i) {
        return chunk[i] == 0 ? 0 : (shape[i] + chunk[i] - 1) / chunk[i];
    };
    const std::uint64_t in_a_row = shape.size() < 2 ? 1 : along(1);
    if (in_a_row > most_chunks_at_once) {
        throw Failure{"its chunks are too small"};
    }
    const std::uint64_t expected = product(along(0), in_a_row);
    const Handle space(H5Dget_space(dataset), H5Sclose);
    hsize_t stored = 0;
    check(H5Dget_num_chunks(dataset, space, &stored));
    if (stored != expected) {
        throw Failure{std::to_string(stored) + " of " + std::to_string(expected) +
                      " chunks are stored"};
    }
    return product(chunk[0], most_chunks_at_once / std::max<std::uint64_t>(in_a_row, 1));
}

/// The array's creation list. Throws where its values are not its own, before the library would
/// open the files that have them.
Handle ownStorage(hid_t dataset) {
    Handle creation(H5Dget_create_plist(dataset), H5Pclose);
    if (check(H5Pget_layout(creation)) == H5D_VIRTUAL ||
        check(H5Pget_external_count(creation)) != 0) {
        throw Failure{"its values are stored elsewhere"};
    }
    return creation;
}

/// Throws where the file cannot hold what the array says it has. Gives the rows that one call may
/// read.
std::uint64_t checkStorage(hid_t dataset, hid_t creation, const std::vector<hsize_t>& shape,
                           std::uint64_t element_bytes, std::uint64_t file_bytes) {
    const H5D_layout_t layout = check(H5Pget_layout(creation));
    checkFilters(creation);
    const std::uint64_t bytes = productOf(shape, element_bytes);
    const std::uint64_t room =
        layout == H5D_CHUNKED ? product(file_bytes, most_values_per_byte) : file_bytes;
    if (bytes > room) {
        throw Failure{"it has more values than the file can hold"};
    }
    if (bytes == 0) {
        return all_rows;
    }
    if (H5Dget_storage_size(dataset) == 0) {
        throw Failure{"its values were never stored"};
    }
    return layout == H5D_CHUNKED ? checkChunks(dataset, creation, shape, element_bytes) : all_rows;
}

} // namespace

struct K7Reader::State {
    std::string path;
    std::uint64_t size = 0;
    Handle file;
    // The group of the last path, since fragments are asked for one after the other.
    std::string group_path;
    Handle group;

    ~State() {
        const std::lock_guard lock(libraryMutex());
        const Quiet quiet;
        group = Handle();
        file = Handle();
    }

    Kind linkOf(hid_t parent, const std::string& name);
    bool enter(const std::string& wanted);
    Kind kindOf(const std::string& object);
    Handle openAny(const std::string& object);
    Handle openArray(const std::string& object);
};

/// What stands under a name of a group.
K7Reader::Kind K7Reader::State::linkOf(hid_t parent, const std::string& name) {
    if (check(H5Lexists(parent, name.c_str(), H5P_DEFAULT)) == 0) {
        return Kind::none;
    }
    H5L_info_t info;
    check(H5Lget_info(parent, name.c_str(), &info, H5P_DEFAULT));
    if (info.type != H5L_TYPE_HARD) {
        return Kind::other;
    }
    const Handle object(H5Oopen(parent, name.c_str(), H5P_DEFAULT), H5Oclose);
    const H5I_type_t type = check(H5Iget_type(object));
    return type == H5I_GROUP ? Kind::group : type == H5I_DATASET ? Kind::array : Kind::other;
}

/// Makes `wanted` the open group; false if it is none. Each link on the way is a hard one.
bool K7Reader::State::enter(const std::string& wanted) {
    if (group_path == wanted && group >= 0) {
        return true;
    }
    if (!k7::isPath(wanted)) {
        return false;
    }
    Handle at(H5Gopen2(file, "/", H5P_DEFAULT), H5Gclose);
    for (std::size_t begin = 1; begin < wanted.size();) {
        const std::size_t end = std::min(wanted.find('/', begin), wanted.size());
        const std::string name = wanted.substr(begin, end - begin);
        if (linkOf(at, name) != Kind::group) {
            return false;
        }
        at = Handle(H5Gopen2(at, name.c_str(), H5P_DEFAULT), H5Gclose);
        begin = end + 1;
    }
    group = std::move(at);
    group_path = wanted;
    return true;
}

K7Reader::Kind K7Reader::State::kindOf(const std::string& object) {
    if (object == "/" || !k7::isPath(object)) {
        return object == "/" ? Kind::group : Kind::none;
    }
    const std::size_t slash = object.rfind('/');
    const std::string parent = slash == 0 ? "/" : object.substr(0, slash);
    return enter(parent) ? linkOf(group, object.substr(slash + 1)) : Kind::none;
}

Handle K7Reader::State::openAny(const std::string& object) {
    switch (kindOf(object)) {
    case Kind::none:
        throw Failure{"it is missing"};
    case Kind::other:
        throw Failure{"it is neither a group nor an array"};
    case Kind::group:
    case Kind::array:
        break;
    }
    const std::string name = object == "/" ? object : object.substr(object.rfind('/') + 1);
    return Handle(H5Oopen(object == "/" ? file : group, name.c_str(), H5P_DEFAULT), H5Oclose);
}

Handle K7Reader::State::openArray(const std::string& object) {
    if (kindOf(object) == Kind::group) {
        throw Failure{"it is not an array"};
    }
    return openAny(object);
}

K7Reader::K7Reader(const std::string& path) : state_(std::make_shared<State>()) {
    State& s = *state_;
    s.path = path;
    perform(path, "", [&] {
        std::error_code error;
        const auto status = std::filesystem::status(path, error);
        if (!std::filesystem::is_regular_file(status)) {
            throw Failure{status.type() == std::filesystem::file_type::not_found ? "no such file"
                          : error                                                ? error.message()
                                  : "it is not a regular file"};
        }
        s.size = std::filesystem::file_size(path, error);
        check(H5PLset_loading_state(0)); // no code by the name of a filter
        const Handle access(H5Pcreate(H5P_FILE_ACCESS), H5Pclose);
        check(H5Pset_fclose_degree(access, H5F_CLOSE_WEAK)); // arrays may outlive the reader
        // Files are looked at where locks do not work, and while they are written.
        check(H5Pset_file_locking(access, false, true));
        s.file = Handle(H5Fopen(path.c_str(), H5F_ACC_RDONLY, access), H5Fclose);
    });
}

K7Reader::~K7Reader() = default;

const std::string& K7Reader::path() const noexcept {
    return state_->path;
}

std::uint64_t K7Reader::size() const noexcept {
    return state_->size;
}

K7Reader::Kind K7Reader::kindOf(const std::string& object) const {
    return perform(state_->path, object, [&] { return state_->kindOf(object); });
}

std::vector<std::string> K7Reader::members(const std::string& group) const {
    return perform(state_->path, group, [&] {
        if (!state_->enter(group)) {
            throw Failure{state_->kindOf(group) == Kind::none ? "it is missing"
                                                              : "it is not a group"};
        }
        std::vector<std::string> names;
        hsize_t at = 0;
        if (check(H5Literate(state_->group, H5_INDEX_NAME, H5_ITER_NATIVE, &at, keepName, &names)) >
            0) {
            throw Failure{"it has more than " + std::to_string(most_members) + " members"};
        }
        std::sort(names.begin(), names.end());
        return names;
    });
}

std::vector<std::string> K7Reader::slices() const {
    std::vector<std::uint32_t> numbers;
    for (const std::string& name : members("/")) {
        if (const auto number = k7::sliceNumber(name)) {
            numbers.push_back(*number);
        }
    }
    std::sort(numbers.begin(), numbers.end());
    std::vector<std::string> paths;
    for (const std::uint32_t number : numbers) {
        paths.push_back(k7::slicePath(number));
    }
    return paths;
}

std::vector<std::string> K7Reader::grids(const std::string& slice) const {
    std::vector<std::string> paths;
    for (const std::string& name : members(slice)) {
        if (kindOf(slice + "/" + name) == Kind::group) {
            paths.push_back(slice + "/" + name);
        }
    }
    return paths;
}

std::vector<std::string> K7Reader::fields(const std::string& grid) const {
    return grids(chartOf(grid));
}

K7Reader::Fragments K7Reader::fragments(const std::string& field) const {
    Fragments found;
    for (const std::string& name : members(field)) {
        if (const auto number = k7::fragmentNumber(name)) {
            found.numbers.push_back(*number);
        } else {
            found.others.push_back(name);
        }
    }
    std::sort(found.numbers.begin(), found.numbers.end());
    return found;
}

std::optional<K7Attribute> K7Reader::attribute(const std::string& object,
                                               const std::string& name) const {
    return perform(state_->path, object, [&]() -> std::optional<K7Attribute> {
        const Handle owner = state_->openAny(object);
        if (check(H5Aexists(owner, name.c_str())) == 0) {
            return std::nullopt;
        }
        try {
            return valueOf(Handle(H5Aopen(owner, name.c_str(), H5P_DEFAULT), H5Aclose));
        } catch (const Failure& f) {
            throw Failure{"attribute " + name + ": " + f.cause};
        }
    });
}

struct K7Array::State {
    std::string file;
    std::string path;
    K7Type type = K7Type::other;
    std::uint64_t element_bytes = 0;
    std::vector<std::uint64_t> shape;
    std::uint64_t rows_at_once = all_rows; // above 0
    Handle dataset;

    ~State() {
        const std::lock_guard lock(libraryMutex());
        const Quiet quiet;
        dataset = Handle();
    }
    std::uint64_t width() const { return shape.size() < 2 ? 1 : shape[1]; }
    void read(K7Type as, std::uint64_t first, std::uint64_t count, std::byte* to) const;
    void readRows(std::uint64_t first, std::uint64_t count, std::byte* to) const;
};

K7Array K7Reader::open(const std::string& array) const {
    auto s = std::make_unique<K7Array::State>();
    s->file = state_->path;
    s->path = array;
    perform(state_->path, array, [&] {
        s->dataset = state_->openArray(array);
        const Handle creation = ownStorage(s->dataset);
        const Handle type(H5Dget_type(s->dataset), H5Tclose);
        const Handle space(H5Dget_space(s->dataset), H5Sclose);
        s->type = typeOf(type);
        s->element_bytes = H5Tget_size(type);
        const std::vector<hsize_t> shape = extentOf(space);
        if (shape.empty() || shape.size() > 2) {
            throw Failure{"it has " + std::to_string(shape.size()) + " dimensions"};
        }
        s->rows_at_once = checkStorage(s->dataset, creation, shape, s->element_bytes, state_->size);
        s->shape.assign(shape.begin(), shape.end());
    });
    return K7Array(std::move(s));
}

K7Column K7Reader::column(const std::string& path) const {
    return perform(state_->path, path, [&] {
        const Handle dataset = state_->openArray(path);
        const Handle creation(H5Dget_create_plist(dataset), H5Pclose);
        K7Column column;
        if (check(H5Pget_layout(creation)) == H5D_VIRTUAL) {
            column.pieces = piecesOf(creation);
        }
        const Handle type(H5Dget_type(dataset), H5Tclose);
        const Handle space(H5Dget_space(dataset), H5Sclose);
        const std::vector<hsize_t> shape = extentOf(space);
        column.type = typeOf(type);
        column.shape.assign(shape.begin(), shape.end());
        return column;
    });
}

K7Array::K7Array(std::unique_ptr<State> state) noexcept : state_(std::move(state)) {}
K7Array::K7Array(K7Array&&) noexcept = default;
K7Array& K7Array::operator=(K7Array&&) noexcept = default;
K7Array::~K7Array() = default;

K7Type K7Array::type() const noexcept {
    return state_->type;
}

const std::vector<std::uint64_t>& K7Array::shape() const noexcept {
    return state_->shape;
}

std::uint64_t K7Array::rowBytes() const noexcept {
    return width() * state_->element_bytes;
}

/// One call of the library.
void K7Array::State::readRows(std::uint64_t first, std::uint64_t count, std::byte* to) const {
    const std::array<hsize_t, 2> start = {first, 0};
    const std::array<hsize_t, 2> block = {count, width()};
    const auto rank = static_cast<int>(shape.size());
    const Handle from(H5Dget_space(dataset), H5Sclose);
    check(H5Sselect_hyperslab(from, H5S_SELECT_SET, start.data(), nullptr, block.data(), nullptr));
    const Handle memory(H5Screate_simple(rank, block.data(), nullptr), H5Sclose);
    check(H5Dread(dataset, memoryTypeOf(type), memory, from, H5P_DEFAULT, to));
}

void K7Array::State::read(K7Type as, std::uint64_t first, std::uint64_t count,
                          std::byte* to) const {
    perform(file, path, [&] {
        if (as != type) {
            throw Failure{std::string("it holds ") + nameOf(type) + ", not " + nameOf(as)};
        }
        if (first > shape[0] || count > shape[0] - first) {
            throw Failure{"it has only " + std::to_string(shape[0]) + " rows"};
        }
        if (width() == 0) {
            return;
        }
        for (const std::uint64_t end = first + count; first != end;) {
            // Up to a border of chunks, so that none is taken apart twice.
            const std::uint64_t rows = std::min(end - first, rows_at_once - first % rows_at_once);
            readRows(first, rows, to);
            to += rows * width() * element_bytes;
            first += rows;
        }
    });
}

template<class T>
void K7Array::read(std::uint64_t first, std::uint64_t count, T* to) const {
    state_->read(type_of_number<T>, first, count, reinterpret_cast<std::byte*>(to));
}

template void K7Array::read(std::uint64_t, std::uint64_t, double*) const;
template void K7Array::read(std::uint64_t, std::uint64_t, float*) const;
template void K7Array::read(std::uint64_t, std::uint64_t, std::uint16_t*) const;
template void K7Array::read(std::uint64_t, std::uint64_t, std::uint8_t*) const;

} // namespace Skein
