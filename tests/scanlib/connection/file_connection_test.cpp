#include "scanlib/file_connection.hpp"

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>

#include <csignal>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using scanlib::basic_rconnection;
using scanlib::basic_wconnection;

class FileConnection : public testing::Test {
  protected:
    FileConnection()
        : folder_(fs::temp_directory_path() / ("file_connection_" + std::to_string(getpid()))) {
        fs::create_directories(folder_);
    }
    ~FileConnection() override { fs::remove_all(folder_); }

    std::string file(const std::string& name, const std::string& content) {
        const fs::path p = folder_ / name;
        fs::create_directories(p.parent_path());
        std::ofstream(p, std::ios::binary) << content;
        return p.string();
    }

    static std::shared_ptr<basic_rconnection> reader(const std::string& uri) {
        return std::shared_ptr<basic_rconnection>(basic_rconnection::create(uri, "", ""));
    }

    static std::string all_of(basic_rconnection& c, std::size_t step) {
        std::string text;
        std::string part(step, '\0');
        while (const auto k = c.read(part.data(), step)) {
            text.append(part, 0, k);
        }
        return text;
    }

    static std::string failure(const std::function<void()>& f) {
        try {
            f();
        } catch (const std::runtime_error& e) {
            return e.what();
        }
        return "no failure";
    }

    fs::path folder_;
};

TEST_F(FileConnection, BarePathAndFileUriAreTheSame) {
    const std::string path = file("scan.rxp", "some bytes");
    for (const std::string& uri : {path, "file:" + path}) {
        const auto c = reader(uri);
        EXPECT_EQ(c->size(), 10u);
        EXPECT_EQ(all_of(*c, 3), "some bytes");
        EXPECT_EQ(c->position(), 10u);
        EXPECT_EQ(c->id(), (folder_ / "scan").string());
    }
}

TEST_F(FileConnection, SchemeInCapitalsIsAFileThatCannotBeOpened) {
    EXPECT_EQ(failure([] { reader("RDTP://127.0.0.1/x"); }),
              "Could not open \"RDTP://127.0.0.1/x\" for reading!");
}

TEST_F(FileConnection, MissingFileAndFolderCannotBeOpened) {
    const std::string missing = (folder_ / "missing").string();
    EXPECT_EQ(failure([&] { reader(missing); }), "Could not open \"" + missing + "\" for reading!");
    EXPECT_EQ(failure([&] { reader(folder_.string()); }),
              "Could not open \"" + folder_.string() + "\" for reading!");
}

TEST_F(FileConnection, OtherSchemeIsRefusedByTheClass) {
    EXPECT_EQ(failure([] { scanlib::file_rconnection("http://x", "", ""); }),
              "Expected \"file:\" scheme, got \"http:\".");
    EXPECT_EQ(failure([] { scanlib::file_wconnection("http://x"); }),
              "Expected \"file:\" scheme, got \"http:\".");
}

TEST_F(FileConnection, EmptyFileOpensAndTheFirstReadEndsTheInput) {
    const auto c = reader(file("empty.rxp", ""));
    char byte;
    EXPECT_EQ(c->size(), 0u);
    EXPECT_EQ(c->read(&byte, 1), 0u);
    EXPECT_EQ(failure([&] { c->read_all(&byte, 1); }),
              "basic_rconnection: attempt to read beyond end of input!");
}

TEST_F(FileConnection, StemIsCutAtTheLastDotEvenOfAFolder) {
    const auto c = reader(file("dir.v2/scan", "x"));
    EXPECT_EQ(c->id(), (folder_ / "dir").string());
}

TEST_F(FileConnection, StoppedOrCancelledConnectionFailsTheNextRead) {
    const std::string path = file("scan.rxp", "some bytes");
    char byte;
    for (const bool stop : {true, false}) {
        const auto c = reader(path);
        EXPECT_EQ(c->read(&byte, 1), 1u);
        stop ? c->stop() : c->cancel();
        EXPECT_EQ(failure([&] { c->read(&byte, 1); }),
                  "file_rconnection::more_input: Operation canceled!");
    }
}

TEST_F(FileConnection, LargerThanItsBufferReadsWhole) {
    std::string content(700001, '\0');
    for (std::size_t i = 0; i < content.size(); ++i) {
        content[i] = static_cast<char>(i * 7 + i / 251);
    }
    const std::string path = file("large.rxp", content);
    for (const std::size_t step : {std::size_t{1000}, std::size_t{262144}, std::size_t{1000000}}) {
        EXPECT_EQ(all_of(*reader(path), step), content) << step;
    }
}

TEST_F(FileConnection, WriterWritesWhatItIsGiven) {
    const std::string path = (folder_ / "out").string();
    for (const std::string& uri : {path, "file:" + path}) {
        std::unique_ptr<basic_wconnection> c(basic_wconnection::create(uri));
        EXPECT_EQ(c->write("abc", 3), 3);
        EXPECT_EQ(c->write("de", 2), 2);
        c.reset();
        EXPECT_EQ(all_of(*reader(path), 100), "abcde");
    }
    EXPECT_EQ(failure([&] { basic_wconnection::create((folder_ / "no" / "out").string()); }),
              "Could not open \"" + (folder_ / "no" / "out").string() + "\" for writing!");
}

TEST_F(FileConnection, WriterStaysOpenUntilItIsFinishedOrDestroyed) {
    const std::string path = (folder_ / "out").string();
    scanlib::file_wconnection c("file:" + path);
    c.open();
    c.write("abc", 3);
    c.flush();
    c.close();
    c.write("de", 2);
    c.finish();
    EXPECT_EQ(all_of(*reader(path), 100), "abcde");
    c.finish();
    EXPECT_EQ(failure([&] { c.write("x", 1); }), "Error writing to file!");
}

TEST_F(FileConnection, WriterEmptiesAFileThatIsThere) {
    const std::string path = file("out", "something longer");
    { scanlib::file_wconnection c("file:" + path); }
    EXPECT_EQ(fs::file_size(path), 0u);
}

TEST_F(FileConnection, FullDiskIsToldWhenTheBufferMustGoOut) {
    struct rlimit old {};
    getrlimit(RLIMIT_FSIZE, &old);
    signal(SIGXFSZ, SIG_IGN);
    const rlimit small{10, old.rlim_max};
    scanlib::file_wconnection c("file:" + (folder_ / "full").string());
    setrlimit(RLIMIT_FSIZE, &small);
    const std::string told = failure([&] {
        c.write("more than ten bytes", 19);
        c.finish();
    });
    setrlimit(RLIMIT_FSIZE, &old);
    EXPECT_EQ(told, "Error writing to file!");
}

} // namespace
