#include "k7_file.hpp"

#include <algorithm>
#include <array>
#include <filesystem>
#include <iterator>
#include <limits>
#include <map>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

#include <hdf5.h>

#include "array_storage.hpp"
#include "bundle_interface/holdfast/console.hpp"
#include "bundle_interface/skein/bundle.hpp"
#include "commit_file.hpp"
#include "k7_columns.hpp"
#include "storage_library.hpp"

namespace Skein {

namespace {

using storage::check;
using storage::Failure;
using storage::Handle;
using storage::libraryMutex;
using storage::Quiet;
using storage::setAttribute;
using storage::TypePair;
using storage::typesOf;

constexpr const char* format_name = "K7";
constexpr std::uint32_t format_version = 1;
// Links stay in the header of their group up to this count. A field's header has room for its first
// links from the start; each later one adds a piece to the header. Either way a fragment changes
// one piece of the file in place, which is what makes a flush safe. Beyond, index structures take
// over of which several pieces change together; larger counts would make each link slower to find.
constexpr unsigned most_header_links = 4096;
constexpr unsigned expected_fragments = 128;
constexpr unsigned few_links = 8;
constexpr unsigned expected_name_length = 12; // of "Fragment_<n>"
constexpr unsigned most_header_attributes = 64;

// The file driver: hands the library's reads and writes to a CommitFile.

struct Medium {
    H5FD_t base; // must be first
    CommitFile* file;
};

CommitFile& fileOf(const H5FD_t* medium) {
    return *reinterpret_cast<const Medium*>(medium)->file;
}

/// Runs a callback of the driver; exceptions must not pass through the library.
template<class Action>
herr_t guarded(Action&& action) noexcept {
    try {
        return action() ? 0 : -1;
    } catch (...) {
        return -1;
    }
}

extern "C" {
static H5FD_t* mediumOpen(const char*, unsigned, hid_t access, haddr_t) {
    const auto* info = static_cast<CommitFile* const*>(H5Pget_driver_info(access));
    return info == nullptr ? nullptr
                           : reinterpret_cast<H5FD_t*>(new (std::nothrow) Medium{{}, *info});
}

static herr_t mediumClose(H5FD_t* file) {
    const herr_t result = guarded([&] { return fileOf(file).commit(); });
    delete reinterpret_cast<Medium*>(file);
    return result;
}

static haddr_t mediumAllocate(H5FD_t* file, H5FD_mem_t type, hid_t, hsize_t size) {
    CommitFile& in = fileOf(file);
    return type == H5FD_MEM_DRAW ? in.allocateData(size) : in.allocateStructure(size);
}

static haddr_t mediumEnd(const H5FD_t* file, H5FD_mem_t) {
    return fileOf(file).allocated();
}

static herr_t mediumSetEnd(H5FD_t* file, H5FD_mem_t, haddr_t end) {
    fileOf(file).setAllocated(end);
    return 0;
}

static haddr_t mediumFileEnd(const H5FD_t* file, H5FD_mem_t) {
    return fileOf(file).end();
}

static herr_t mediumRead(H5FD_t* file, H5FD_mem_t, hid_t, haddr_t at, size_t count, void* bytes) {
    return guarded([&] { return fileOf(file).read(at, bytes, count); });
}

static herr_t mediumWrite(H5FD_t* file, H5FD_mem_t type, hid_t, haddr_t at, size_t count,
                          const void* bytes) {
    CommitFile& to = fileOf(file);
    return guarded([&] {
        return type == H5FD_MEM_DRAW ? to.writeData(at, bytes, count)
                                     : to.writeStructure(at, bytes, count);
    });
}

static herr_t mediumFlush(H5FD_t* file, hid_t, hbool_t) {
    return guarded([&] { return fileOf(file).commit(); });
}
}

const H5FD_class_t& mediumClass() {
    static const H5FD_class_t instance = [] {
        H5FD_class_t c = {};
#if H5_VERSION_GE(1, 13, 0)
        c.version = H5FD_CLASS_VERSION;
        c.value = static_cast<H5FD_class_value_t>(H5_VFD_RESERVED + 7);
#endif
        c.name = "rxp2k7";
        c.maxaddr = static_cast<haddr_t>(std::numeric_limits<std::int64_t>::max());
        c.fc_degree = H5F_CLOSE_STRONG;
        // The pointer is what the list holds. NOLINTNEXTLINE(bugprone-sizeof-expression)
        c.fapl_size = sizeof(CommitFile*);
        c.open = mediumOpen;
        c.close = mediumClose;
        // No query: block aggregation would put new pieces before the committed end, where
        // CommitFile does not want them. No truncate: each commit sets the size.
        c.alloc = mediumAllocate;
        c.get_eoa = mediumEnd;
        c.set_eoa = mediumSetEnd;
        c.get_eof = mediumFileEnd;
        c.read = mediumRead;
        c.write = mediumWrite;
        c.flush = mediumFlush;
        const H5FD_mem_t lists[] = H5FD_FLMAP_DICHOTOMY;
        std::copy(std::begin(lists), std::end(lists), std::begin(c.fl_map));
        // Texts are structure: freed room of theirs must not take column data.
        c.fl_map[H5FD_MEM_GHEAP] = H5FD_MEM_SUPER;
        return c;
    }();
    return instance;
}

// Property lists.

/// The registered driver. Stays registered: the library calls it even after it gave up its own
/// reference. Registered anew if the library was shut down and started again since.
hid_t mediumDriver() {
    static hid_t driver = H5I_INVALID_HID;
    if (driver < 0 || H5Iget_type(driver) != H5I_VFL) {
        driver = check(H5FDregister(&mediumClass()));
    }
    return driver;
}

Handle fileAccess(CommitFile* medium) {
    Handle access(H5Pcreate(H5P_FILE_ACCESS), H5Pclose);
    check(H5Pset_driver(access, mediumDriver(), &medium));
    check(H5Pset_libver_bounds(access, H5F_LIBVER_V18, H5F_LIBVER_V18));
    check(H5Pset_fclose_degree(access, H5F_CLOSE_STRONG));
    return access;
}

/// Creation list of groups, or with H5P_FILE_CREATE of the root group.
Handle groupCreation(hid_t kind, unsigned expected_links) {
    Handle list(H5Pcreate(kind), H5Pclose);
    check(H5Pset_link_phase_change(list, most_header_links, most_header_links - 1));
    check(H5Pset_est_link_info(list, expected_links, expected_name_length));
    check(H5Pset_attr_phase_change(list, most_header_attributes, most_header_attributes - 1));
    check(H5Pset_obj_track_times(list, false)); // reruns give the same bytes
    return list;
}

/// Pieces that the object's header has.
unsigned headerPieces(hid_t object) {
#if H5_VERSION_GE(1, 12, 0)
    H5O_native_info_t info;
    check(H5Oget_native_info(object, &info, H5O_NATIVE_INFO_HDR));
#else
    H5O_info_t info;
    check(H5Oget_info2(object, &info, H5O_INFO_HDR));
#endif
    return info.hdr.nchunks;
}

/// Extends the newest piece of the object's header, which is the last in the file, to the end of
/// its page. By itself each link beyond the first room would add a piece, and thousands are slow.
void makeRoom(hid_t object, hsize_t left) {
    constexpr const char* filler = "room";
    constexpr hsize_t overhead = 80; // of the filler, and a little more
    if (left < 2 * overhead) {
        return;
    }
    const hsize_t bytes = left - overhead;
    const Handle space(H5Screate_simple(1, &bytes, nullptr), H5Sclose);
    Handle(H5Acreate2(object, filler, H5T_STD_U8LE, space, H5P_DEFAULT, H5P_DEFAULT), H5Aclose)
        .close();
    check(H5Adelete(object, filler)); // leaves the room
}

Handle groupAt(hid_t file, const std::string& path) {
    return Handle(H5Oopen(file, path.c_str(), H5P_DEFAULT), H5Oclose);
}

/// A column that the file need not copy while it is written.
class LentColumn {
  public:
    LentColumn(CommitFile& file, std::shared_ptr<Holdfast::Loan> loan, const void* bytes)
        : file_(file) {
        file_.offer(bytes, std::move(loan));
    }
    LentColumn(const LentColumn&) = delete;
    LentColumn& operator=(const LentColumn&) = delete;
    ~LentColumn() { file_.offer(nullptr, nullptr); }

  private:
    CommitFile& file_;
};

} // namespace

struct K7File::State {
    std::string path;
    std::string part;
    std::unique_ptr<CommitFile> medium;
    Handle file;
    Handle group_creation;
    Handle field_creation; // groups with many members
    ArrayStorage storage;
    std::map<std::string, unsigned> header_pieces; // of each field
    K7Columns columns;
    bool write_behind = false;
    std::string failure;
    bool finished = false;
    bool abandoned = false;

    template<class Action>
    void perform(const std::string& action, Action&& run);
    void fail(const std::string& action, const std::string& cause);
    void create();
    void flush();
    void addColumns();
    Handle datasetCreation(const MemBase& array, const std::vector<hsize_t>& shape) const;
    void closeLibraryFile() noexcept;
    void removePart() noexcept;
};

/// Runs one operation under the lock, and makes its failure the file's last.
template<class Action>
void K7File::State::perform(const std::string& action, Action&& run) {
    const std::lock_guard lock(libraryMutex());
    if (!failure.empty()) {
        throw std::runtime_error(failure);
    }
    if (finished || abandoned) {
        throw std::runtime_error("K7: cannot " + action + " in " + path + ": the file is closed");
    }
    const Quiet quiet;
    try {
        run();
        if (!write_behind && medium && !medium->settle()) {
            throw Failure{};
        }
    } catch (const Failure& f) {
        fail(action, medium && !medium->error().empty() ? medium->error() : f.cause);
    } catch (const std::exception& e) {
        fail(action, e.what());
    }
}

void K7File::State::fail(const std::string& action, const std::string& cause) {
    failure = "K7: cannot " + action + " in " + part + ": " + cause;
    if (medium) {
        medium->rollBack();
    }
    throw std::runtime_error(failure);
}

void K7File::State::create() {
    medium = std::make_unique<CommitFile>(part);
    const Handle access = fileAccess(medium.get());
    const Handle creation = groupCreation(H5P_FILE_CREATE, few_links);
    file = Handle(H5Fcreate(part.c_str(), H5F_ACC_TRUNC, creation, access), H5Fclose);
    group_creation = groupCreation(H5P_GROUP_CREATE, few_links);
    field_creation = groupCreation(H5P_GROUP_CREATE, expected_fragments);
}

void K7File::State::flush() {
    check(H5Fflush(file, H5F_SCOPE_GLOBAL));
    if (!medium->error().empty()) {
        throw Failure{medium->error()};
    }
}

/// The fragments are safe by now. What the columns add goes the same way as a fragment, so that an
/// end of the process leaves either. A file that the library gives no columns is whole without
/// them; a disk that cannot take them has failed.
void K7File::State::addColumns() {
    flush();
    if (!medium->settle()) {
        throw Failure{medium->error()};
    }
    try {
        // Virtual datasets are younger than all else in the file.
        check(H5Fset_libver_bounds(file, H5F_LIBVER_V18, H5F_LIBVER_LATEST));
        columns.write(file);
        flush();
        if (!medium->settle()) {
            throw Failure{medium->error()};
        }
    } catch (const Failure& f) {
        if (!medium->settle()) {
            throw;
        }
        medium->rollBack();
        Holdfast::Console() << "K7: " + path + " gets no columns over its fragments: " + f.cause;
    }
}

void K7File::State::closeLibraryFile() noexcept {
    group_creation = Handle();
    field_creation = Handle();
    file = Handle();
}

Handle K7File::State::datasetCreation(const MemBase& array,
                                      const std::vector<hsize_t>& shape) const {
    Handle list(H5Pcreate(H5P_DATASET_CREATE), H5Pclose);
    check(H5Pset_obj_track_times(list, false));
    const std::size_t chunk_rows = storage.chunkRows(array);
    if (chunk_rows == 0) {
        // The whole array is written right after; filling it first would write all of it twice.
        check(H5Pset_fill_time(list, H5D_FILL_TIME_NEVER));
        return list;
    }
    std::vector<hsize_t> chunk = shape;
    chunk[0] = chunk_rows;
    check(H5Pset_chunk(list, static_cast<int>(chunk.size()), chunk.data()));
    if (storage.shuffle) {
        check(H5Pset_shuffle(list));
    }
    if (storage.deflate_level != 0) {
        check(H5Pset_deflate(list, storage.deflate_level));
    }
    return list;
}

void K7File::State::removePart() noexcept {
    std::error_code ignored;
    if (medium && !finished) {
        std::filesystem::remove(part, ignored);
    }
}

K7File::K7File(const std::string& path, const StorageTransformations* transformations)
    : state_(std::make_unique<State>()) {
    State& s = *state_;
    s.path = path;
    s.part = path + ".part";
    s.storage = ArrayStorage(transformations);
    try {
        s.perform("create the bundle", [&] {
            if (std::filesystem::is_directory(path)) {
                throw Failure{path + " is a directory"};
            }
            s.create();
        });
        setText("/", "Format", format_name);
        setScalar("/", "FormatVersion", format_version);
        setText("/", "Creator", bundleCreator());
        // From here on the .part opens, whenever the process ends.
        flush();
    } catch (...) {
        const std::lock_guard lock(libraryMutex());
        const Quiet quiet;
        s.closeLibraryFile();
        s.removePart();
        throw;
    }
}

K7File::~K7File() {
    abandon();
    const std::lock_guard lock(libraryMutex());
    const Quiet quiet;
    state_->closeLibraryFile();
}

void K7File::setWriteBehind(bool on) noexcept {
    const std::lock_guard lock(libraryMutex());
    state_->write_behind = on;
}

void K7File::makeGroup(const std::string& path, Members members) {
    State& s = *state_;
    s.perform("make " + path, [&] {
        if (check(H5Lexists(s.file, path.c_str(), H5P_DEFAULT)) == 0) {
            const Handle& creation = members == Members::many ? s.field_creation : s.group_creation;
            Handle(H5Gcreate2(s.file, path.c_str(), H5P_DEFAULT, creation, H5P_DEFAULT), H5Gclose)
                .close();
        }
    });
}

void K7File::setScalar(const std::string& path, const std::string& name, const Scalar& value) {
    state_->perform("set attribute " + name + " of " + path, [&] {
        const Handle group = groupAt(state_->file, path);
        const Handle space(H5Screate(H5S_SCALAR), H5Sclose);
        std::visit([&](const auto& v) { setAttribute(group, name, typesOf(typeid(v)), space, &v); },
                   value);
    });
}

void K7File::setText(const std::string& path, const std::string& name, const std::string& text) {
    state_->perform("set attribute " + name + " of " + path,
                    [&] { storage::setText(groupAt(state_->file, path), name, text); });
}

void K7File::setArray(const std::string& path, const std::string& name,
                      const Holdfast::ChunkBase& values) {
    state_->perform("set attribute " + name + " of " + path, [&] {
        const ElementDescription element = describeElement(values.elementType());
        const std::array<hsize_t, 2> shape = {values.size(), element.components};
        const Handle space(H5Screate_simple(element.components == 1 ? 1 : 2, shape.data(), nullptr),
                           H5Sclose);
        setAttribute(groupAt(state_->file, path), name, typesOf(*element.componentType), space,
                     values.raw());
    });
}

void K7File::store(const std::string& path, const std::string& name, const MemBase& array) {
    State& s = *state_;
    s.perform("store " + path + "/" + name, [&] {
        const std::vector<hsize_t> shape = storedShape<hsize_t>(array);
        const Handle group = groupAt(s.file, path);
        const Handle space(H5Screate_simple(static_cast<int>(shape.size()), shape.data(), nullptr),
                           H5Sclose);
        const Handle creation = s.datasetCreation(array, shape);
        const TypePair types = typesOf(*array.element().componentType);
        Handle dataset(H5Dcreate2(group, memberPath("", name).c_str() + 1, types.file, space,
                                  H5P_DEFAULT, creation, H5P_DEFAULT),
                       H5Dclose);
        if (unsigned& pieces = s.header_pieces[path]; headerPieces(group) > pieces) {
            if (pieces != 0) {
                makeRoom(group, s.medium->leftInPage());
            }
            pieces = headerPieces(group);
        }
        if (array.rows() != 0 && array.width() != 0) {
            const LentColumn lent(*s.medium, s.write_behind ? array.lend() : nullptr, array.raw());
            check(H5Dwrite(dataset, types.memory, H5S_ALL, H5S_ALL, H5P_DEFAULT, array.raw()));
        }
        dataset.close();
        s.columns.addFragment(path, name, array);
    });
}

void K7File::addColumn(const std::string& path, const std::string& units,
                       const std::string& long_name) {
    const std::lock_guard lock(libraryMutex());
    state_->columns.addField(path, units, long_name);
}

void K7File::describeColumn(const std::string& path, const MemBase& array) {
    const std::lock_guard lock(libraryMutex());
    state_->columns.describe(path, array);
}

void K7File::flush() {
    state_->perform("flush", [&] { state_->flush(); });
}

void K7File::settle() {
    State& s = *state_;
    // Waits without the lock: other files go on meanwhile.
    const bool arrived = s.medium->settle();
    const std::lock_guard lock(libraryMutex());
    if (!s.failure.empty()) {
        throw std::runtime_error(s.failure);
    }
    if (!arrived) {
        s.fail("write", s.medium->error());
    }
}

void K7File::finish() {
    State& s = *state_;
    if (s.abandoned || (s.finished && s.failure.empty())) {
        return;
    }
    s.perform("finish the bundle", [&] {
        s.addColumns();
        s.group_creation.close();
        s.field_creation.close();
        s.file.close();
        if (!s.medium->close() || !s.medium->error().empty()) {
            throw Failure{s.medium->error()};
        }
        std::filesystem::rename(s.part, s.path);
        s.finished = true;
    });
}

void K7File::abandon() noexcept {
    State& s = *state_;
    const std::lock_guard lock(libraryMutex());
    if (s.finished || s.abandoned || !s.failure.empty()) {
        return;
    }
    const Quiet quiet;
    s.abandoned = true;
    s.medium->rollBack();
    s.closeLibraryFile();
}

void K7File::discard() noexcept {
    abandon();
    const std::lock_guard lock(libraryMutex());
    state_->removePart();
}

std::uint64_t K7File::size() const {
    const std::lock_guard lock(libraryMutex());
    return state_->medium ? state_->medium->end() : 0;
}

bool K7File::failed() const noexcept {
    const std::lock_guard lock(libraryMutex());
    return !state_->failure.empty();
}

} // namespace Skein
