// K7 files of all sorts of objects, as the storage library makes them: types, ranks, extents and
// layouts that are no K7 file's, links that are missing, lead away or in circles, odd names and
// attributes. Reading fails by K7ReadError and no other way, memory is bounded, no object of the
// library stays open, and an array with nothing wrong with it reads as it was written. Damaged
// bytes are not tried here: they crash the library itself.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

#include "bundle_interface/k7_reader.hpp"
#include "odd_k7.hpp"

namespace {

using odd_k7::Bytes;
using Skein::K7Array;
using Skein::K7Reader;
using Skein::K7ReadError;
using Skein::K7Type;

constexpr std::uint64_t most_bytes_at_once = 1U << 20U;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

/// Gives what `read` gives, or what there is if that fails, which is told by a text with the file.
template<class Read, class Result>
Result attempt(const std::string& path, Read&& read, Result otherwise) {
    try {
        return read();
    } catch (const K7ReadError& e) {
        require(!e.cause().empty());
        require(std::string(e.what()).find(path) != std::string::npos);
        return otherwise;
    }
}

template<class T>
bool read_as(const K7Array& array, std::uint64_t first, std::uint64_t count,
             std::vector<double>& values) {
    std::vector<T> block(static_cast<std::size_t>(count * array.width()));
    array.read(first, count, block.data());
    values.assign(block.begin(), block.end());
    return true;
}

bool read_rows(const K7Array& array, std::uint64_t first, std::uint64_t count,
               std::vector<double>& values) {
    switch (array.type()) {
    case K7Type::f64:
        return read_as<double>(array, first, count, values);
    case K7Type::f32:
        return read_as<float>(array, first, count, values);
    case K7Type::u16:
        return read_as<std::uint16_t>(array, first, count, values);
    default:
        return read_as<std::uint8_t>(array, first, count, values);
    }
}

class Visit {
  public:
    explicit Visit(const std::string& path) : path_(path), reader_(path) {}

    void everything() {
        attributes("/");
        for (const std::string& slice : list([&] { return reader_.slices(); })) {
            attributes(slice);
            for (const std::string& grid : list([&] { return reader_.grids(slice); })) {
                attributes(grid);
                for (const std::string& field : list([&] { return reader_.fields(grid); })) {
                    fragments(field);
                }
            }
        }
    }

    void place(const std::string& object) {
        using Kind = K7Reader::Kind;
        const Kind kind = attempt(
            path_, [&] { return reader_.kindOf(object); }, Kind::other);
        const auto members = list([&] { return reader_.members(object); });
        require(kind == Kind::group || members.empty());
        attributes(object);
        array(object);
    }

    void sound(const odd_k7::Sound& s) {
        require(reader_.kindOf(s.path) == K7Reader::Kind::array);
        const K7Array array = reader_.open(s.path);
        require(array.type() == s.type);
        require(array.shape() == s.shape);
        std::vector<double> values;
        require(read_rows(array, 0, array.rows(), values));
        for (std::size_t i = 0; i < values.size(); ++i) {
            require(values[i] == odd_k7::value(i));
        }
        const std::uint64_t middle = array.rows() / 2;
        read_rows(array, middle, array.rows() - middle, values);
        for (std::size_t i = 0; i < values.size(); ++i) {
            require(values[i] ==
                    odd_k7::value(static_cast<std::size_t>(middle * array.width()) + i));
        }
    }

  private:
    /// The list, or an empty one; also when many were asked for, since circles have no end.
    template<class List>
    std::vector<std::string> list(List&& names) {
        return ++lists_ > 300 ? std::vector<std::string>()
                              : attempt(path_, names, std::vector<std::string>());
    }

    void attributes(const std::string& object) {
        for (const std::string& name : odd_k7::attribute_names) {
            const auto value = attempt(
                path_, [&] { return reader_.attribute(object, name); },
                std::optional<Skein::K7Attribute>());
            if (value) {
                require(value->numbers.size() <= 1U << 20U && value->text.size() <= 1U << 20U);
                const bool number = value->type != K7Type::text && value->type != K7Type::other;
                require(number ? value->text.empty() : value->numbers.empty());
                require(!number || !value->scalar || value->numbers.size() == 1);
            }
        }
    }

    void fragments(const std::string& field) {
        attributes(field);
        const auto found = attempt(
            path_, [&] { return reader_.fragments(field); }, K7Reader::Fragments());
        require(std::is_sorted(found.numbers.begin(), found.numbers.end()));
        for (const std::uint32_t number : found.numbers) {
            array(K7Reader::fragmentPath(field, number));
        }
    }

    void array(const std::string& object) {
        attempt(
            path_,
            [&] {
                const K7Array array = reader_.open(object);
                require(array.shape().size() == 1 || array.shape().size() == 2);
                // Values that a file has not got are not promised.
                require(array.rowBytes() == 0 ||
                        array.rows() <= 1040 * reader_.size() / array.rowBytes());
                std::vector<double> values;
                const std::uint64_t row = std::max<std::uint64_t>(array.rowBytes(), 1);
                return read_rows(array, 0, std::min(array.rows(), most_bytes_at_once / row),
                                 values);
            },
            false);
    }

    std::string path_;
    K7Reader reader_;
    int lists_ = 0;
};

/// A file in memory; the library wants a path that it can resolve.
struct File {
    const std::string path = "/dev/shm/fuzz_k7_reader_" + std::to_string(getpid());
    File() = default;
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    ~File() { std::filesystem::remove(path); }
};

/// A path of a few names, some of them none.
std::string odd_path(Bytes& bytes) {
    std::string path = bytes.below(8) == 0 ? "" : "/";
    for (std::size_t names = bytes.below(6); names != 0; --names) {
        path += bytes.pick(odd_k7::names);
        path += bytes.below(8) == 0 ? "" : names == 1 ? "" : "/";
    }
    return path;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const File file;
    const std::string& path = file.path;
    if (size > 1000) {
        return 0;
    }
    Bytes bytes(data, size);
    std::vector<std::string> paths;
    for (std::size_t count = bytes.below(5); count != 0; --count) {
        paths.push_back(odd_path(bytes));
    }
    const auto sound = odd_k7::write(path.c_str(), bytes);
    require(odd_k7::open_objects() == 0);
    {
        Visit visit(path);
        visit.everything();
        for (const std::string& object : paths) {
            visit.place(object);
        }
        for (const odd_k7::Sound& s : sound) {
            visit.sound(s);
        }
    }
    require(odd_k7::open_objects() == 0);
    return 0;
}
