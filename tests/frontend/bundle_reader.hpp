#pragma once

#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include <hdf5.h>

namespace frontend_test {

/// A fragment's dataset as it stands in the file.
struct Stored {
    bool there = false;
    std::vector<hsize_t> shape;
    std::vector<double> values;
};

/// Reads a finished bundle directly, past the code under test.
class BundleReader {
  public:
    explicit BundleReader(const std::filesystem::path& path)
        : file_(H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT)) {}
    BundleReader(const BundleReader&) = delete;
    BundleReader& operator=(const BundleReader&) = delete;
    ~BundleReader() { H5Fclose(file_); }

    static std::string place(const std::string& grid, const std::string& field) {
        return "/Slice_0/" + grid + "/StandardCartesianChart3D/" + field;
    }

    Stored read(const std::string& grid, const std::string& field, int fragment) const {
        Stored result;
        const std::string path = place(grid, field) + "/Fragment_" + std::to_string(fragment);
        if (H5Lexists(file_, path.c_str(), H5P_DEFAULT) <= 0) {
            return result;
        }
        const hid_t set = H5Dopen2(file_, path.c_str(), H5P_DEFAULT);
        const hid_t space = H5Dget_space(set);
        result.there = true;
        result.shape.resize(static_cast<std::size_t>(H5Sget_simple_extent_ndims(space)));
        H5Sget_simple_extent_dims(space, result.shape.data(), nullptr);
        result.values.resize(static_cast<std::size_t>(H5Sget_simple_extent_npoints(space)));
        if (!result.values.empty()) {
            H5Dread(set, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, result.values.data());
        }
        H5Sclose(space);
        H5Dclose(set);
        return result;
    }

    bool has_grid(const std::string& grid) const {
        return H5Lexists(file_, ("/Slice_0/" + grid).c_str(), H5P_DEFAULT) > 0;
    }

    /// Numbers of the fragments below `end` that a field has.
    std::vector<int> fragments(const std::string& grid, const std::string& field, int end) const {
        std::vector<int> found;
        for (int i = 0; i < end; ++i) {
            if (read(grid, field, i).there) {
                found.push_back(i);
            }
        }
        return found;
    }

    /// A number attribute of a grid, NaN if it is not there.
    double number(const std::string& grid, const std::string& name) const {
        const std::string path = "/Slice_0/" + grid;
        double value = std::numeric_limits<double>::quiet_NaN();
        if (H5Aexists_by_name(file_, path.c_str(), name.c_str(), H5P_DEFAULT) > 0) {
            const hid_t attribute =
                H5Aopen_by_name(file_, path.c_str(), name.c_str(), H5P_DEFAULT, H5P_DEFAULT);
            H5Aread(attribute, H5T_NATIVE_DOUBLE, &value);
            H5Aclose(attribute);
        }
        return value;
    }

    /// Value of "LeapSecondsAdded?", -1 if it is not there.
    int leap_seconds_added(const std::string& grid) const {
        const std::string path = place(grid, "GPSTime");
        if (H5Aexists_by_name(file_, path.c_str(), "LeapSecondsAdded?", H5P_DEFAULT) <= 0) {
            return -1;
        }
        const hid_t attribute =
            H5Aopen_by_name(file_, path.c_str(), "LeapSecondsAdded?", H5P_DEFAULT, H5P_DEFAULT);
        unsigned char value = 255;
        H5Aread(attribute, H5T_NATIVE_UCHAR, &value);
        H5Aclose(attribute);
        return value;
    }

  private:
    hid_t file_;
};

} // namespace frontend_test
