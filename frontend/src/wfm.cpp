#include "wfm.hpp"

#include <algorithm>
#include <cmath>
#include <iostream>

#include "bundle_interface/pulsekit.hpp"

namespace Riegl {

namespace {

/// Channels are told by their number, whatever their names are.
constexpr std::uint64_t refused_channel = 2;
constexpr std::uint64_t reference_channel = 3;
constexpr std::size_t pulse_model_channel = 1;

} // namespace

WFM::WFM(Input& input, const std::filesystem::path& file, bool leap_flag,
         ConversionSummary& summary)
    : scanlib::wave(true, false)
    , input_(&input)
    , file_(file)
    , leap_flag_(leap_flag)
    , writer_(file, input)
    , date_code_(PulseKit::Chronometry(file.filename().string()).date_code)
    , summary_(&summary) {}

WFM::~WFM() {
    summary_->store_failed = writer_.store_failed();
}

void WFM::on_shot() {
    scanlib::wave::on_shot();
    if (std::isnan(time)) {
        note_loss(scanlib::loss::shot_without_time);
        return;
    }
    ShotsStaging& shots = writer_.shots();
    shots.ensure_row(shots_count_);
    shots.column<"GPSTime">()[shots_count_] = time;
    shots.column<"Waveforms.DirectionDelta">()[shots_count_] = {
        beam_direction[0], beam_direction[1], beam_direction[2]};
    shots.column<"Positions">()[shots_count_] = {beam_origin[0], beam_origin[1], beam_origin[2]};
    ++shots_count_;
}

void WFM::on_echo_ready(scanlib::echo_position position) {
    if (!writer_.has_opp()) {
        return;
    }
    scanlib::wave::on_echo_ready(position);
    const scanlib::target& t = newest_target();
    if (std::isnan(time) || std::isnan(t.echo_range) || std::isnan(t.vertex[0]) ||
        std::isnan(t.vertex[1]) || std::isnan(t.vertex[2])) {
        note_loss(scanlib::loss::echo_without_position);
        return;
    }
    OppStaging& opp = writer_.opp();
    opp.ensure_row(opp_count_);
    opp.column<"GPSTime">()[opp_count_] = t.time;
    opp.column<"Range">()[opp_count_] = t.echo_range;
    opp.column<"Amplitude">()[opp_count_] = t.amplitude;
    opp.column<"Channel">()[opp_count_] = static_cast<unsigned char>(t.is_rising ^ 1);
    opp.column<"Reflectance">()[opp_count_] = t.reflectance;
    ++opp_count_;
}

void WFM::on_header(scanlib::packets::header& p, const std::uint32_t* end) {
    scanlib::wave::on_header(p, end);
    attributes_.serial = serial;
    attributes_.type_id = type_id;
    attributes_.build = build;
}

void WFM::on_atmosphere_4(scanlib::packets::atmosphere_4& p) {
    scanlib::wave::on_atmosphere_4(p);
    attributes_.group_velocity = static_cast<double>(p.group_velocity());
    // Nanometres here, though the engine keeps metres.
    attributes_.wavelength = static_cast<double>(p.wavelength());
}

void WFM::on_wave(scanlib::wave_block& block) {
    if (!writer_.has_waveforms() || block.records.empty() || std::isnan(time)) {
        return;
    }
    WaveformsStaging& staging = writer_.waveforms();
    for (const scanlib::wave_record& r : block.records) {
        if (r.channel == reference_channel) {
            attributes_.t_ref = r.time_sorg;
            continue;
        }
        if (r.channel == refused_channel) {
            Holdfast::Console() << "baseRxpToSkein:: Warning: Channel is 2 !?!";
            continue;
        }
        const std::size_t n = r.samples.size();
        const std::size_t stored = std::min<std::size_t>(n, input_->Exported_FWF_LENGTH);
        staging.ensure_row(wave_count_);
        staging.column<"GPSTime">()[wave_count_] = block.time;
        staging.column<"SBL_Time">()[wave_count_] = r.time_sorg;
        staging.column<"Channel">()[wave_count_] = static_cast<unsigned char>(r.channel);
        staging.column<"FWFLength">()[wave_count_] = static_cast<unsigned short>(stored);
        auto& waveforms = staging.column<"Waveforms">();
        waveforms.assign(wave_count_, r.samples.data(), stored);
        waveforms.max_length = std::max(waveforms.max_length, static_cast<std::uint32_t>(n));
        ++wave_count_;
    }
}

/// Takes the place of the engine's own handler: the pulse model of one channel goes into the
/// attributes, that of the others nowhere.
void WFM::on_sbl_dg_channel_expsum_1(scanlib::packets::sbl_dg_channel_expsum_1& p) {
    if (p.channel() != pulse_model_channel || channels.size() <= pulse_model_channel) {
        return;
    }
    scanlib::wave_channel& c = channels[pulse_model_channel];
    c.delay = p.delay();
    c.scale = p.scale();
    c.a_lin = p.a_lin();
    SysWaveA.clear();
    SysWaveB.clear();
    for (std::size_t i = 0; i < p.tail_size(); ++i) {
        const auto e = p.tail(i);
        // The element's four numbers are two complex ones here.
        SysWaveA.emplace_back(e.A(), e.B());
        SysWaveB.emplace_back(e.gamma(), e.omega());
        std::cout << "on_sbl_dg_channel_expsum_1: SysWave coefficient A: " << SysWaveA.back()
                  << " B: " << SysWaveB.back() << " i: " << i << std::endl;
    }
}

/// Makes attributes of the pulse model once it is known; the first one stays.
void WFM::keep_coefficients() {
    if (attributes_.pulse_A_real.available() || SysWaveA.empty() ||
        SysWaveA.size() != SysWaveB.size()) {
        return;
    }
    const auto parts = [](const std::vector<std::complex<double>>& numbers, auto part) {
        AttributesForFWFProcessing::Coefficients chunk(new Holdfast::Chunk<double>(numbers.size()));
        std::transform(numbers.begin(), numbers.end(), chunk->data(), part);
        return chunk;
    };
    const auto real = [](const std::complex<double>& c) { return c.real(); };
    const auto imag = [](const std::complex<double>& c) { return c.imag(); };
    attributes_.pulse_A_real = parts(SysWaveA, real);
    attributes_.pulse_A_imag = parts(SysWaveA, imag);
    attributes_.pulse_B_real = parts(SysWaveB, real);
    attributes_.pulse_B_imag = parts(SysWaveB, imag);
}

void WFM::unstage(const Rows& rows) {
    auto& times = writer_.shots().column<"GPSTime">();
    for (std::uint32_t row = rows.shots; row < shots_count_; ++row) {
        times[row] = 0; // rows without a shot
    }
    shots_count_ = rows.shots;
    opp_count_ = rows.echoes;
    wave_count_ = rows.waveforms;
    if (writer_.has_waveforms()) {
        writer_.waveforms().column<"Waveforms">().max_length = rows.longest_waveform;
    }
}

void WFM::on_hk_extended_external(scanlib::packets::hk_extended_external&) {}

bool WFM::lies_inside_time_range() const {
    if (!input_->TimeRange.available()) {
        return false;
    }
    const auto inside = [&](double t) {
        return input_->TimeRange->min <= t && t <= input_->TimeRange->max;
    };
    return inside(writer_.first_shot_time()) && inside(writer_.last_shot_time());
}

/// Waits for the fragment that is on its way to the file. Only then do its rows count.
void WFM::settle_fragment() {
    writer_.settle();
    summary_->shots += under_way_.shots;
    summary_->echoes += under_way_.echoes;
    summary_->waveforms += under_way_.waveforms;
    summary_->fragments += (under_way_.shots | under_way_.echoes | under_way_.waveforms) != 0;
    under_way_ = {};
}

std::string WFM::flush_staging() {
    // At most one fragment is on its way while the next is staged: so much a killed process loses.
    settle_fragment();
    attributes_.sampling_time = sampling_time;
    attributes_.unambiguous_range = unambiguous_range;
    keep_coefficients();
    const bool skip = lies_inside_time_range();
    std::string text = writer_.write_fragment(fragment_number_, &opp_count_, &wave_count_,
                                              &shots_count_, &date_code_, &leap_flag_, &skip);
    ++fragment_number_;
    const std::uint64_t rows = std::uint64_t{shots_count_} + opp_count_ + wave_count_;
    if (skip) {
        note_loss(scanlib::loss::skipped_fragment);
        note_loss(scanlib::loss::skipped_row, rows);
    } else if (text.empty()) {
        under_way_ = staged();
    }
    return text;
}

std::string WFM::write_rows(bool final) {
    if (final) {
        std::string text = flush_staging();
        settle_fragment();
        return text.empty() ? write_scan_attributes() : text;
    }
    std::string text = flush_staging();
    opp_count_ = wave_count_ = shots_count_ = 0;
    if (text.empty()) {
        writer_.prepare_fragment(input_->FragSize, input_->Exported_FWF_LENGTH);
    }
    return text;
}

std::string WFM::write_scan_attributes() {
    override_t_ref(attributes_, file_, *input_);
    parsed_ = parse_reflectance_amplitude_attributes(meta_stream.str(), *input_);
    if (!parsed_.refltab.available() || parsed_.refltab->size() == 0) {
        return "WFM::shall_we_write: No reflectance amplitude attributes found in meta json "
               "string.";
    }
    attributes_.ampl_unit = parsed_.ampl_unit;
    attributes_.refltab_delta = parsed_.refltab_delta;
    attributes_.refltab = parsed_.refltab;
    // The text it returns says nothing that the caller could act on.
    attributes_.addAttributeToK7File(writer_.waveforms_grid(), writer_.shots_grid(), {}, {}, -1);
    return {};
}

} // namespace Riegl
