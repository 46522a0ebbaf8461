#pragma once

#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "scanlib/file_connection.hpp"

namespace test_support {

/// A read connection that shows what is hidden from its users.
class open_scan : public scanlib::file_rconnection {
  public:
    using file_rconnection::end_of_input_;
    using file_rconnection::push_back;
    using file_rconnection::pxp_;

    explicit open_scan(const std::string& path, const std::string& pxp = "")
        : file_rconnection("file:" + path, "", pxp) {}
};

/// A folder of its own for the files of a scan; gone afterwards.
class scan_folder : public testing::Test {
  protected:
    scan_folder()
        : folder_(std::filesystem::temp_directory_path() /
                  ("scan_folder_" + std::to_string(getpid()))) {
        std::filesystem::create_directories(folder_);
    }
    ~scan_folder() override { std::filesystem::remove_all(folder_); }

    std::string path(const std::string& name) const { return (folder_ / name).string(); }

    std::string file(const std::string& name, const std::string& content) const {
        std::filesystem::create_directories((folder_ / name).parent_path());
        std::ofstream(folder_ / name, std::ios::binary) << content;
        return path(name);
    }

    template<class Action>
    static std::string failure(const Action& act) {
        try {
            act();
        } catch (const std::runtime_error& e) {
            return e.what();
        }
        return "no failure";
    }

    /// What one read delivers.
    static std::string read(scanlib::basic_rconnection& c, std::size_t n) {
        std::string text(n, '\0');
        text.resize(c.read(text.data(), n));
        return text;
    }

    /// What is left, read in pieces of at most `n`.
    static std::string rest(scanlib::basic_rconnection& c, std::size_t n = 100) {
        std::string all;
        for (std::string piece = read(c, n); !piece.empty(); piece = read(c, n)) {
            all += piece;
        }
        return all;
    }

    std::filesystem::path folder_;
};

/// While it lives, file modes count for a superuser, too.
class without_privileges {
  public:
    without_privileges() : user_(geteuid()) {
        if (user_ == 0 && seteuid(65534) != 0) {
            throw std::runtime_error("cannot give up privileges");
        }
    }
    without_privileges(const without_privileges&) = delete;
    without_privileges& operator=(const without_privileges&) = delete;
    ~without_privileges() {
        if (seteuid(user_) != 0) {
            std::abort();
        }
    }

  private:
    uid_t user_;
};

} // namespace test_support
