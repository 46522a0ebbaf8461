#include "staging.hpp"

#include <algorithm>
#include <limits>

#include "bundle_interface/k7_names.hpp"

namespace Riegl {

namespace {

// What a packet may add after the limit was reached.
constexpr std::uint32_t margin = 500;

std::uint32_t rows_of(std::uint32_t frag_size) {
    return frag_size > std::numeric_limits<std::uint32_t>::max() - margin
               ? std::numeric_limits<std::uint32_t>::max()
               : frag_size + margin;
}

} // namespace

std::mutex& store_mutex() {
    static std::mutex mutex;
    return mutex;
}

void mark_leap_seconds(Skein::Field& field, bool leap_flag) {
    Holdfast::StrongPtr<Holdfast::Chunk<unsigned char>> added(
        new Holdfast::Chunk<unsigned char>(1));
    added->data()[0] = leap_flag ? 0 : 1;
    field.attributes.setAttribute("LeapSecondsAdded?",
                                  Holdfast::StrongPtr<Holdfast::ChunkBase>(added));
    field.age = ++Holdfast::Ageable::GlobalTime;
}

std::atomic<std::uint64_t> SkeinDataBase::instances{0};

SkeinDataBase::SkeinDataBase(Skein::Slice& slice, const std::string& name, const std::string& chart)
    : instance(instances.fetch_add(1))
    , grid(slice[name])
    , representation(grid->makeCartesianRepresentation(3, chart, 0)) {}

BundleWriter::BundleWriter(const std::filesystem::path& file, const Input& input)
    : input_(input), bundle_(new Skein::Bundle) {
    const std::filesystem::path output = input_.OutDir / (file.stem().string() + ".k7");
    bundle_->bindToNew(output.string(), input_.Transformations);
    bundle_->setWriteBehind(true);
    slice_ = bundle_.create()[0.0];
}

void BundleWriter::prepare_fragment(const std::uint32_t& frag_size,
                                    const std::uint32_t& exported_length) {
    // The old staging object goes first, so that the new one gets its memory.
    const auto renew = [&]<class Staging>(Holdfast::StrongPtr<Staging>& staging, const char* name,
                                          typename Staging::Memory& memory, std::uint32_t width) {
        staging.reset();
        Holdfast::StrongPtr<Staging> made(
            new Staging(*slice_, name, Skein::k7::chart_name, memory));
        made->reserve(rows_of(frag_size), width);
        staging = made;
    };
    renew(shots_, "Shots", shots_memory_, 1);
    if (input_.ExportOPP) {
        renew(opp_, "OPP", opp_memory_, 1);
    }
    if (input_.ExportFWF) {
        renew(waveforms_, "Waveforms", waveforms_memory_, exported_length);
    }
}

std::string BundleWriter::write_fragment(std::uint32_t fragment, std::uint32_t* opp_count,
                                         std::uint32_t* wave_count, std::uint32_t* shots_count,
                                         const std::int32_t* date_code, const bool* leap_flag,
                                         const bool* skip_flag) {
    std::string text;
    const auto write = [&](const auto& staging, std::uint32_t count) {
        if (text.empty() && staging.available()) {
            text = staging->write(fragment, count, *date_code, *leap_flag, *skip_flag);
        }
    };
    write(shots_, *shots_count);
    write(opp_, *opp_count);
    write(waveforms_, *wave_count);
    if (text.empty() && !*skip_flag && (*shots_count | *opp_count | *wave_count) != 0) {
        const std::lock_guard lock(store_mutex());
        bundle_->flush();
        has_rows_ = true;
    }
    return text;
}

void BundleWriter::settle() {
    bundle_->settle();
}

Holdfast::StrongPtr<Skein::Grid> BundleWriter::shots_grid() const {
    return shots_.available() ? shots_->grid : Holdfast::StrongPtr<Skein::Grid>();
}

Holdfast::StrongPtr<Skein::Grid> BundleWriter::waveforms_grid() const {
    return waveforms_.available() ? waveforms_->grid : Holdfast::StrongPtr<Skein::Grid>();
}

double BundleWriter::first_shot_time() const {
    const auto& times = std::as_const(*shots_).column<"GPSTime">();
    return times.ready() == 0 ? 0 : times[0];
}

double BundleWriter::last_shot_time() const {
    const auto& times = std::as_const(*shots_).column<"GPSTime">();
    std::size_t i = times.ready();
    while (i > 0 && times[i - 1] == 0) {
        --i;
    }
    return i == 0 ? 0 : times[i - 1];
}

void BundleWriter::finish() {
    const std::lock_guard lock(store_mutex());
    bundle_->finish();
}

void BundleWriter::abandon() noexcept {
    const std::lock_guard lock(store_mutex());
    if (has_rows_) {
        bundle_->abandon();
    } else {
        bundle_->discard();
    }
}

} // namespace Riegl
