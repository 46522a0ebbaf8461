#pragma once

#include <filesystem>
#include <string>

#include "driver.hpp"
#include "frontend/inspection.hpp"
#include "scanlib/wave.hpp"

namespace Riegl {

/// Consumer of the packets in an inspection: plots the waveforms of the shots in a time range.
class InspectFWF : public scanlib::wave {
  public:
    /// `summary` outlives this object, which counts in it.
    InspectFWF(const Input& input, const std::filesystem::path& file, InspectionSummary& summary);

  protected:
    void on_wave(scanlib::wave_block& block) override;

  private:
    void count_shot(const scanlib::wave_block& block);
    bool plot(const scanlib::wave_record& record);

    Input input_;
    std::filesystem::path file_; ///< where the waveforms come from
    InspectionSummary* summary_;
};

/// inspectFWFs over the connection that `connect` makes.
std::string inspect_stream(const std::filesystem::path& file, Input& input,
                           const ConnectionFactory& connect);

/// About how many packets a stream of `size` bytes has, for the progress of an inspection; -1
/// stands for an unknown size.
int inspection_total(std::int64_t size);

} // namespace Riegl
