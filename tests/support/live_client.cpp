// A live stream's client in the hands of a test, which has the clock of the retries too.
//
// Reads commands, one a line, on standard input:
//   open URI OUTPUT CONTINUATION      "-" for an empty continuation; receives the stream into
//   OUTPUT
// and answers, one line each:
//   wait SECONDS                      a retry waits; goes on with the next line of input
//   end BYTES ANNOUNCED CONTINUATION ID
//   error KIND CONTINUATION TEXT      KIND is system, other or cancelled
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include "rdtp_link.hpp"
#include "scanlib/rdtp_connection.hpp"

namespace {

std::chrono::nanoseconds ask_the_test(std::chrono::seconds time) {
    std::cout << "wait " << time.count() << std::endl;
    std::string go;
    std::getline(std::cin, go);
    return {};
}

/// Everything is in the file, whether the stream ends well or not.
std::uint64_t receive(scanlib::rdtp_rconnection& connection, const std::string& path) {
    std::ofstream out(path, std::ios::binary | std::ios::app);
    std::vector<char> block(5000);
    std::uint64_t total = 0;
    while (const auto n = connection.read(block.data(), block.size())) {
        out.write(block.data(), static_cast<std::streamsize>(n)).flush();
        total += n;
    }
    return total;
}

void report_error(const char* kind, scanlib::rdtp_rconnection& connection, const char* text) {
    std::cout << "error " << kind << ' ' << connection.continuation() << ' ' << text << std::endl;
}

void play(const std::string& uri, const std::string& path, const std::string& continuation) {
    scanlib::rdtp_rconnection connection(uri, continuation == "-" ? "" : continuation, "",
                                         scanlib::make_tcp_link(ask_the_test));
    try {
        connection.open();
        const std::uint64_t total = receive(connection, path);
        std::cout << "end " << total << ' ' << connection.end_announced() << ' '
                  << connection.continuation() << ' ' << connection.id() << std::endl;
    } catch (const scanlib::cancelled& e) {
        report_error("cancelled", connection, e.what());
    } catch (const std::system_error& e) {
        report_error("system", connection, e.what());
    } catch (const std::exception& e) {
        report_error("other", connection, e.what());
    }
}

} // namespace

int main() {
    std::string line;
    while (std::getline(std::cin, line)) {
        std::istringstream words(line);
        std::string command;
        std::string uri;
        std::string path;
        std::string continuation;
        if (!(words >> command >> uri >> path >> continuation) || command != "open") {
            return 2;
        }
        play(uri, path, continuation);
    }
    return 0;
}
