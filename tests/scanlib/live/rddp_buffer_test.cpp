// The size of a socket's buffer, which the system may refuse to tell.
#include <atomic>
#include <cerrno>
#include <string>
#include <system_error>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "scanlib/rddp_connection.hpp"

namespace {

std::atomic<bool> refused{false};

} // namespace

// Takes the place of the system's function in this program.
extern "C" int getsockopt(int socket, int level, int option, void* value,
                          socklen_t* size) noexcept {
    if (refused && level == SOL_SOCKET && option == SO_RCVBUF) {
        errno = ENOBUFS;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_getsockopt, socket, level, option, value, size));
}

TEST(RddpFailures, BufferWhoseSizeIsNotKnownIsToldOnOpening) {
    scanlib::rddp_rconnection connection("rddp://127.0.0.1:0", "", "");
    refused = true;
    try {
        connection.open();
        FAIL() << "it opens";
    } catch (const std::system_error& e) {
        EXPECT_EQ(e.code(), std::error_code(ENOBUFS, std::system_category()));
        EXPECT_EQ(std::string(e.what()), "get_option: No buffer space available");
    }
    refused = false;
    scanlib::rddp_rconnection another("rddp://127.0.0.1:0", "", "");
    EXPECT_NO_THROW(another.open());
}
