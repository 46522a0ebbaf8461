// Runs a fuzz target once over each file named on the command line (folders are walked), and once
// over no bytes.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void run(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

} // namespace

int main(int argc, char** argv) {
    std::size_t inputs = 1;
    LLVMFuzzerTestOneInput(nullptr, 0);
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path path = argv[i];
        if (!std::filesystem::is_directory(path)) {
            run(path);
            ++inputs;
            continue;
        }
        for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
            if (entry.is_regular_file()) {
                run(entry.path());
                ++inputs;
            }
        }
    }
    std::printf("%zu inputs replayed\n", inputs);
    return 0;
}
