#pragma once

#include "scanlib/pointcloud.hpp"
#include "scanlib/wave_block.hpp"
#include "scanlib/wave_block_pool.hpp"

#include <array>
#include <bitset>
#include <cstdint>
#include <memory>
#include <vector>

namespace scanlib {

/// Adds the waveforms of full-waveform scanners to the points.
///
/// Sample-block packets are put together to one `wave_block` a shot, which waits until the shot of
/// the same internal time ends; then `on_wave` gets it:
///
///     block header  -> a block opens, of the header's time
///     block data    -> a record of the newest block
///     laser_shot    -> the shot before ends: blocks older than it are dropped, and on_wave gets
///     the
///                      block of its time, or an empty one
///
/// So every shot yields one `on_wave` once channels are known. It also keeps the channels, their
/// pulse models and the time of the reference pulse, and writes and reads them as metadata.
///
/// What blocks without a shot may take is bounded by `open_block_limit` and `open_sample_limit`,
/// which counts the memory of their samples and something for each record; beyond, the oldest are
/// dropped and counted. In steady state nothing is allocated.
class wave : public pointcloud {
  public:
    static constexpr std::size_t channel_limit = 16;
    static constexpr std::size_t open_block_limit = 16384;
    static constexpr std::size_t open_sample_limit = std::size_t{8} << 20;

    /// With `uncompress`, compressed samples are decoded; else their words are handed out as they
    /// are. `sync_to_pps` as for pointcloud.
    wave(bool sync_to_pps, bool uncompress);
    ~wave() override;

    /// Numbers of one calibration table for waveforms: two lists and how their entries scale, with
    /// x = first * x_factor + x_offset and y = second * y_factor + y_offset.
    struct calibration_slot {
        double x_factor = 0;
        double x_offset = 0;
        double y_factor = 0;
        double y_offset = 0;
        std::vector<std::uint16_t> first;
        std::vector<std::uint16_t> second;
    };

    /// Adds the member "wave" when there are channels.
    void write_meta(std::ostream& out) const override;

    void on_units(packets::units& p) override;
    void on_pps_sync(packets::pps_sync& p) override;
    void on_pps_sync_hr(packets::pps_sync_hr& p) override;
    void on_calib_table(packets::calib_table& p, const std::uint32_t* end) override;

    void on_sbl_dg_parameters(packets::sbl_dg_parameters& p) override;
    void on_sbl_dg_header(packets::sbl_dg_header& p) override;
    void on_sbl_dg_data(packets::sbl_dg_data& p, const std::uint32_t* end) override;
    void on_sbl_dg_data_compressed(packets::sbl_dg_data_compressed& p,
                                   const std::uint32_t* end) override;
    void on_sbl_dg_header_hr(packets::sbl_dg_header_hr& p) override;
    void on_sbl_dg_data_hr(packets::sbl_dg_data_hr& p, const std::uint32_t* end) override;
    void on_sbl_dg_data_compressed_hr(packets::sbl_dg_data_compressed_hr& p,
                                      const std::uint32_t* end) override;
    void on_sbl_dg_channel(packets::sbl_dg_channel& p) override;
    void on_sbl_dg_channel_header(packets::sbl_dg_channel_header& p,
                                  const std::uint32_t* end) override;
    void on_sbl_dg_channel_header_1(packets::sbl_dg_channel_header_1& p,
                                    const std::uint32_t* end) override;
    void on_sbl_dg_channel_expsum(packets::sbl_dg_channel_expsum& p) override;
    void on_sbl_dg_channel_expsum_1(packets::sbl_dg_channel_expsum_1& p) override;
    void on_sbl_dg_channel_data(packets::sbl_dg_channel_data& p, const std::uint32_t* end) override;
    void on_sbl_dg_channel_data_compressed(packets::sbl_dg_channel_data_compressed& p,
                                           const std::uint32_t* end) override;
    void on_pulse_model_expsum(packets::pulse_model_expsum& p, const std::uint32_t* end) override;

  protected:
    /// A shot ended; `block` is its waveforms, its first record that of the reference pulse. The
    /// block may be changed during the call and is gone after it.
    virtual void on_wave(wave_block& block);

    void apply_meta() override;
    void on_shot_end() override;
    /// Completes the channels. Throws std::runtime_error "wave: illegal name for channel 3 found: "
    /// and the name where the reference channel has no place.
    void on_check_parameters_before_measurement_starting() override;

    std::bitset<channel_limit> channel_mask = ~std::bitset<channel_limit>{}; ///< others are ignored
    std::vector<wave_channel> channels;
    std::uint64_t reference_channel_index = 3;
    double t_null_pdae = 0; ///< s, time of the reference pulse
    std::array<calibration_slot, 5> wave_calibration;
    bool have_wave_data = false;
    bool default_channels_in_use = false;

  private:
    template<class Ticks>
    wave_block* open_block(Ticks ticks);
    void configure_block_sync();
    void append_open(std::unique_ptr<wave_block> block);
    wave_record& add_record(wave_block& block, std::uint64_t channel, double time_sorg);
    void add_header_sample(wave_block& block, std::uint16_t sample);
    wave_block* block_for_samples(std::size_t sample_count);
    std::size_t open_count() const noexcept { return open_blocks_.size() - first_open_; }
    wave_block& oldest() noexcept { return *open_blocks_[first_open_]; }
    std::unique_ptr<wave_block> take_oldest();
    void drop_oldest(loss cause);
    void hand_over(std::unique_ptr<wave_block> block);

    double sampling_time_of(std::uint64_t channel) const noexcept;
    double high_resolution_start(std::int32_t block_field, std::uint64_t channel,
                                 std::uint64_t ticks) const noexcept;
    wave_record* record_of_channel(std::uint64_t channel, std::int16_t block_field,
                                   std::size_t sample_count);
    template<class Fill>
    void fill_samples(wave_record& record, Fill fill);
    template<class Packet>
    void store_words16(const Packet& p, wave_record& record);
    template<class Packet>
    void store_packed(const Packet& p, std::size_t sample_count, wave_record& record);
    template<class Packet>
    void store_compressed(const Packet& p, wave_record& record);

    void set_reference_time(double seconds) noexcept;
    void read_channel(const boost::property_tree::ptree& tree, wave_channel& channel);

    const bool uncompress_;
    bool t_null_locked_ = false; ///< the time of the reference pulse comes from a calibration
    time_sync block_sync_;
    // Blocks from first_open_ on are open, oldest first; the others are gone.
    std::vector<std::unique_ptr<wave_block>> open_blocks_;
    std::size_t first_open_ = 0;
    std::size_t open_samples_ = 0; ///< what open blocks take, in samples
    wave_block_pool pool_;
};

} // namespace scanlib
