// use_rxp2k7 RECORDING FOLDER: converts a recording, and hears of its progress in its own way.
#include <cstdio>
#include <exception>
#include <string>

#include "frontend/conversion.hpp"

namespace {

/// Prints a line for each tenth of the way at most, and the rows at the end.
class tenths : public Riegl::ProgressMonitor {
  public:
    void report(const std::string& label, int current, int total) override {
        // The total is an estimate, which a recording may well exceed.
        const int tenth = current < total ? static_cast<int>(10.0 * current / total) : 10;
        if (tenth > last_) {
            last_ = tenth;
            std::printf("%s: %d of about %d\n", label.c_str(), current, total);
        }
    }

    void summarise(const Riegl::ConversionSummary& done) override {
        std::printf("%s: %llu shots, %llu echoes, %llu waveforms\n", done.output.c_str(),
                    static_cast<unsigned long long>(done.shots),
                    static_cast<unsigned long long>(done.echoes),
                    static_cast<unsigned long long>(done.waveforms));
        for (const Riegl::Loss& loss : done.losses) {
            std::printf("  %s: %llu, first at byte %llu\n", loss.name.c_str(),
                        static_cast<unsigned long long>(loss.count),
                        static_cast<unsigned long long>(loss.first_offset));
        }
    }

  private:
    int last_ = -1;
};

int convert(const char* recording, const char* folder) {
    Riegl::Input input;
    input.OutDir = folder;
    // The reference deletes the monitor with the last of its copies.
    input.Progress = Holdfast::StrongPtr<Riegl::ProgressMonitor>(new tenths);
    const std::string failure = Riegl::rxpToSkeinK7(recording, input);
    if (!input.Errors.empty()) {
        std::fprintf(stderr, "%s\n", input.Errors.c_str());
    }
    if (!failure.empty()) {
        std::fprintf(stderr, "%s: %s\n", recording, failure.c_str());
    }
    return failure.empty() && input.Errors.empty() ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: use_rxp2k7 RECORDING FOLDER\n");
        return 2;
    }
    try {
        return convert(argv[1], argv[2]);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s: %s\n", argv[1], e.what());
        return 1;
    }
}
