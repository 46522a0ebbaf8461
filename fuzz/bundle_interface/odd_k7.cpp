#include "odd_k7.hpp"

#include <algorithm>
#include <map>
#include <utility>

#include <hdf5.h>

namespace odd_k7 {

namespace {

using Skein::K7Type;

/// Owns any identifier; one that could not be made stays negative.
class Id {
  public:
    Id(hid_t id) : id_(id) {}
    Id(Id&& other) noexcept : id_(std::exchange(other.id_, -1)) {}
    Id& operator=(Id&& other) noexcept {
        std::swap(id_, other.id_);
        return *this;
    }
    ~Id() {
        if (id_ >= 0) {
            H5Idec_ref(id_);
        }
    }
    operator hid_t() const { return id_; }

  private:
    hid_t id_;
};

Id text_type(std::size_t size) {
    Id type(H5Tcopy(H5T_C_S1));
    H5Tset_size(type, size);
    return type;
}

Id compound_type() {
    Id type(H5Tcreate(H5T_COMPOUND, 16));
    H5Tinsert(type, "a", 0, H5T_IEEE_F64LE);
    H5Tinsert(type, "b", 8, H5T_STD_U8LE);
    return type;
}

Id enumeration_type() {
    Id type(H5Tenum_create(H5T_STD_U8LE));
    const std::uint8_t one = 1;
    H5Tenum_insert(type, "one", &one);
    return type;
}

Id odd_float_type() {
    Id type(H5Tcopy(H5T_IEEE_F64LE));
    H5Tset_precision(type, 40);
    return type;
}

constexpr std::size_t sound_types = 4;

/// The first ones are those of arrays, the next ones those of attributes, the others no K7 file's.
Id type_of(std::size_t kind) {
    constexpr std::array<hsize_t, 2> three = {3, 2};
    switch (kind) {
    case 0:
        return H5Tcopy(H5T_IEEE_F64LE);
    case 1:
        return H5Tcopy(H5T_IEEE_F32LE);
    case 2:
        return H5Tcopy(H5T_STD_U16LE);
    case 3:
        return H5Tcopy(H5T_STD_U8LE);
    case 4:
        return H5Tcopy(H5T_STD_I32LE);
    case 5:
        return H5Tcopy(H5T_STD_U32LE);
    case 6:
        return text_type(2);
    case 7:
        return text_type(H5T_VARIABLE);
    case 8:
        return text_type(3000);
    case 9:
        return H5Tcopy(H5T_IEEE_F64BE);
    case 10:
        return H5Tcopy(H5T_STD_I8LE);
    case 11:
        return H5Tcopy(H5T_STD_REF_OBJ);
    case 12:
        return H5Tcreate(H5T_OPAQUE, 7);
    case 13:
        return H5Tarray_create2(H5T_IEEE_F64LE, 2, three.data());
    case 14:
        return H5Tvlen_create(H5T_STD_U8LE);
    case 15:
        return compound_type();
    case 16:
        return enumeration_type();
    default:
        return odd_float_type();
    }
}
constexpr std::size_t type_kinds = 18;

constexpr std::array<K7Type, sound_types> type_names = {K7Type::f64, K7Type::f32, K7Type::u16,
                                                        K7Type::u8};
constexpr hsize_t huge = hsize_t{1} << 40U;
constexpr hsize_t most_written = 20000;

class Writer {
  public:
    Writer(const char* path, Bytes& bytes) : bytes_(bytes), file_(create(path)) {
        groups_.emplace("/", H5Gopen2(file_, "/", H5P_DEFAULT));
    }

    std::vector<Sound> run() {
        if (bytes_.below(4) != 0) {
            usual_groups();
        }
        for (int step = 0; step < 48 && !bytes_.empty(); ++step) {
            one_step();
        }
        return std::move(sound_);
    }

  private:
    struct Place {
        std::string group;
        std::string name;
        std::string path() const { return (group == "/" ? "" : group) + "/" + name; }
    };

    /// A file of the format that the bytes choose.
    hid_t create(const char* path) {
        const Id creation(H5Pcreate(H5P_FILE_CREATE));
        const Id access(H5Pcreate(H5P_FILE_ACCESS));
        const unsigned form = bytes_.next();
        const std::array<H5F_libver_t, 4> oldest = {H5F_LIBVER_EARLIEST, H5F_LIBVER_V18,
                                                    H5F_LIBVER_V110, H5F_LIBVER_LATEST};
        H5Pset_libver_bounds(access, oldest[form % 4], H5F_LIBVER_LATEST);
        if ((form & 4U) != 0) {
            H5Pset_userblock(creation, 512);
        }
        if ((form & 8U) != 0) {
            H5Pset_link_creation_order(creation, H5P_CRT_ORDER_TRACKED);
        }
        if ((form & 16U) != 0) {
            H5Pset_file_space_strategy(creation, H5F_FSPACE_STRATEGY_PAGE, true, 1);
        }
        H5Pset_fclose_degree(access, H5F_CLOSE_STRONG);
        const hid_t file = H5Fcreate(path, H5F_ACC_TRUNC, creation, access);
        // Some of these exclude each other.
        return file >= 0 ? file : H5Fcreate(path, H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT);
    }

    void usual_groups() {
        Place place = {"/", names[0]};
        for (std::size_t level = 1; level <= 4; ++level) {
            make_group(place);
            place = {place.path(), names[level]};
        }
        latest_ = place.group;
    }

    void one_step() {
        switch (bytes_.below(10)) {
        case 0:
            make_group(place());
            break;
        case 1:
            remove(place());
            break;
        case 2:
            link(place());
            break;
        case 3:
        case 4:
            set_attribute();
            break;
        default:
            make_array(place());
            break;
        }
    }

    /// A name in a group, often in that of the step before.
    Place place() {
        const std::size_t choice = bytes_.below(2 * groups_.size());
        if (choice < groups_.size()) {
            latest_ = std::next(groups_.begin(), static_cast<std::ptrdiff_t>(choice))->first;
        }
        return {latest_, bytes_.pick(names)};
    }

    hid_t group_of(const Place& at) const { return groups_.at(at.group); }

    void make_group(const Place& at) {
        Id group(H5Gcreate2(group_of(at), at.name.c_str(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT));
        if (group >= 0) {
            groups_.emplace(at.path(), std::move(group));
        }
    }

    /// What stood under the name may go on to exist under another one.
    void remove(const Place& at) {
        const std::string path = at.path();
        if (groups_.count(path) == 0 &&
            H5Ldelete(group_of(at), at.name.c_str(), H5P_DEFAULT) >= 0) {
            std::erase_if(sound_, [&](const Sound& s) { return s.path == path; });
        }
    }

    void link(const Place& at) {
        const auto target =
            std::next(groups_.begin(), static_cast<std::ptrdiff_t>(bytes_.below(groups_.size())));
        const hid_t group = group_of(at);
        const char* const name = at.name.c_str();
        switch (bytes_.below(5)) {
        case 0:
            H5Lcreate_hard(target->second, ".", group, name, H5P_DEFAULT, H5P_DEFAULT);
            break;
        case 1:
            H5Lcreate_soft(target->first.c_str(), group, name, H5P_DEFAULT, H5P_DEFAULT);
            break;
        case 2:
            H5Lcreate_external("/proc/self/exe", "/", group, name, H5P_DEFAULT, H5P_DEFAULT);
            break;
        case 3:
            H5Tcommit2(group, name, type_of(bytes_.below(type_kinds)), H5P_DEFAULT, H5P_DEFAULT,
                       H5P_DEFAULT);
            break;
        default:
            if (!arrays_.empty()) {
                const std::string& array = arrays_[bytes_.below(arrays_.size())];
                H5Lcreate_hard(file_, array.c_str(), group, name, H5P_DEFAULT, H5P_DEFAULT);
            }
            break;
        }
    }

    void set_attribute() {
        const auto owner =
            std::next(groups_.begin(), static_cast<std::ptrdiff_t>(bytes_.below(groups_.size())));
        const bool of_array = !arrays_.empty() && bytes_.below(2) != 0;
        const std::string path = of_array ? arrays_[bytes_.below(arrays_.size())] : owner->first;
        const std::size_t kind = bytes_.below(type_kinds);
        const Id type(type_of(kind));
        constexpr std::array<hsize_t, 6> lengths = {0, 1, 3, 1000, (1U << 20U) + 1, 1U << 20U};
        const unsigned form = bytes_.next() % 9;
        // The longest of single bytes only, for speed.
        const std::array<hsize_t, 2> extent = {lengths[form % (kind == 3 ? lengths.size() : 4)], 1};
        const Id space(form == 7   ? H5Screate(H5S_SCALAR)
                       : form == 8 ? H5Screate(H5S_NULL)
                                   : H5Screate_simple(1 + form % 2, extent.data(), nullptr));
        const std::string& name = bytes_.pick(attribute_names);
        H5Adelete_by_name(file_, path.c_str(), name.c_str(), H5P_DEFAULT);
        const Id attribute(H5Acreate_by_name(file_, path.c_str(), name.c_str(), type, space,
                                             H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT));
        if (attribute >= 0 && kind <= 6 && H5Aget_storage_size(attribute) < 10000) {
            const std::vector<std::uint8_t> text(H5Aget_storage_size(attribute), 0xC3);
            H5Awrite(attribute, type, text.data());
        } else if (attribute >= 0 && kind == 7 && form == 7) {
            const std::string text(bytes_.below(2) == 0 ? 5 : (1U << 20U) + 1, 'x');
            const char* const pointer = text.c_str();
            H5Awrite(attribute, type, &pointer);
        }
    }

    /// How an array is stored: what is wrong with it is said in `sound`.
    struct Layout {
        Id creation = H5Pcreate(H5P_DATASET_CREATE);
        bool sound = true;
        bool written = true;
    };

    void store_in_chunks(Layout& layout, const std::vector<hsize_t>& shape) {
        constexpr std::array<hsize_t, 5> lengths = {1, 2, 7, 1U << 14U, 1U << 20U};
        std::vector<hsize_t> chunk;
        for (std::size_t i = 0; i < shape.size(); ++i) {
            chunk.push_back(bytes_.pick(lengths));
        }
        H5Pset_chunk(layout.creation, static_cast<int>(chunk.size()), chunk.data());
        const unsigned filters = bytes_.next();
        if ((filters & 1U) != 0) {
            H5Pset_shuffle(layout.creation);
        }
        if ((filters & 2U) != 0) {
            H5Pset_deflate(layout.creation, 1);
        }
        if ((filters & 4U) != 0) {
            H5Pset_fletcher32(layout.creation);
        }
        if ((filters & 24U) == 24U) {
            H5Pset_nbit(layout.creation);
            layout.sound = false;
        }
        // More than 2^26 bytes are refused, and take long to write.
        hsize_t values = 1;
        for (const hsize_t length : chunk) {
            values *= length;
        }
        if (values > 1U << 17U) {
            layout.sound = layout.written = false;
        }
        if (shape.size() == 2 && shape[1] / chunk[1] >= 1024) {
            layout.sound = false; // too many in a row
        }
    }

    Layout make_layout(const std::vector<hsize_t>& shape, hid_t type) {
        Layout layout;
        switch (bytes_.below(7)) {
        case 0:
        case 1:
            store_in_chunks(layout, shape);
            break;
        case 2:
            H5Pset_layout(layout.creation, H5D_COMPACT);
            break;
        case 3:
            H5Pset_external(layout.creation, "/proc/self/exe", 0, H5F_UNLIMITED);
            layout.sound = layout.written = false;
            break;
        case 4: {
            const Id space(H5Screate_simple(static_cast<int>(shape.size()), shape.data(), nullptr));
            H5Pset_virtual(layout.creation, space, bytes_.below(2) == 0 ? "." : "/proc/self/exe",
                           arrays_.empty() ? "/" : arrays_.front().c_str(), space);
            layout.sound = layout.written = false;
            break;
        }
        default:
            break;
        }
        if (bytes_.below(8) == 0) {
            layout.sound = layout.written = false;
        }
        H5Pset_fill_time(layout.creation, H5D_FILL_TIME_NEVER);
        return H5Tget_size(type) > 8 ? Layout{std::move(layout.creation), false, layout.written}
                                     : std::move(layout);
    }

    std::vector<hsize_t> make_shape() {
        constexpr std::array<hsize_t, 8> lengths = {0, 1, 2, 5, 31, 12000, 1U << 20U, huge};
        std::vector<hsize_t> shape(bytes_.below(8) == 0 ? bytes_.below(5) : 1 + bytes_.below(2));
        for (hsize_t& length : shape) {
            length = bytes_.pick(lengths);
        }
        return shape;
    }

    /// Some rows at a time, since the library takes some KiB for each chunk that a call writes.
    static bool write_values(hid_t array, const std::vector<hsize_t>& shape, std::size_t values) {
        std::vector<std::uint8_t> content(values);
        for (std::size_t i = 0; i < values; ++i) {
            content[i] = value(i);
        }
        const Id space(H5Dget_space(array));
        if (values < 1000 || shape.size() > 2) {
            return H5Dwrite(array, H5T_NATIVE_UINT8, space, space, H5P_DEFAULT, content.data()) >=
                   0;
        }
        const hsize_t width = shape.size() < 2 ? 1 : shape[1];
        for (hsize_t row = 0; row < shape[0];) {
            const std::array<hsize_t, 2> start = {row, 0};
            const std::array<hsize_t, 2> block = {
                std::min(shape[0] - row, std::max<hsize_t>(1, 500 / width)), width};
            H5Sselect_hyperslab(space, H5S_SELECT_SET, start.data(), nullptr, block.data(),
                                nullptr);
            const Id memory(
                H5Screate_simple(static_cast<int>(shape.size()), block.data(), nullptr));
            if (H5Dwrite(array, H5T_NATIVE_UINT8, memory, space, H5P_DEFAULT,
                         content.data() + row * width) < 0) {
                return false;
            }
            row += block[0];
        }
        return true;
    }

    void make_array(const Place& at) {
        const std::size_t kind =
            bytes_.below(3) == 0 ? bytes_.below(type_kinds) : bytes_.below(sound_types);
        const Id type(type_of(kind));
        const std::vector<hsize_t> shape = make_shape();
        const Layout layout = make_layout(shape, type);
        const Id space(shape.empty() ? H5Screate(bytes_.below(2) == 0 ? H5S_SCALAR : H5S_NULL)
                                     : H5Screate_simple(static_cast<int>(shape.size()),
                                                        shape.data(), nullptr));
        const Id array(H5Dcreate2(group_of(at), at.name.c_str(), type, space, H5P_DEFAULT,
                                  layout.creation, H5P_DEFAULT));
        if (array < 0) {
            return;
        }
        arrays_.push_back(at.path());
        hsize_t values = 1;
        for (const hsize_t length : shape) {
            values = std::min(values * std::min(length, most_written + 1), most_written + 1);
        }
        if (kind >= sound_types || !layout.written || values > most_written) {
            return;
        }
        const bool written = write_values(array, shape, static_cast<std::size_t>(values));
        if (written && layout.sound && (shape.size() == 1 || shape.size() == 2)) {
            sound_.push_back({at.path(), type_names[kind], {shape.begin(), shape.end()}});
        }
    }

    Bytes& bytes_;
    Id file_;
    std::map<std::string, Id> groups_;
    std::vector<std::string> arrays_; ///< paths of all that were made, some of them gone again
    std::string latest_ = "/";
    std::vector<Sound> sound_;
};

} // namespace

std::vector<Sound> write(const char* path, Bytes& bytes) {
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
    return Writer(path, bytes).run();
}

std::size_t open_objects() {
    return static_cast<std::size_t>(H5Fget_obj_count(static_cast<hid_t>(H5F_OBJ_ALL), H5F_OBJ_ALL));
}

} // namespace odd_k7
