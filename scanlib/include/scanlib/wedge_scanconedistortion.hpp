#pragma once

#include "scanlib/distortion.hpp"
#include "scanlib/wedge.hpp"

namespace scanlib {

/// A turning wedge whose beam leaves its cone by a little, differently over the turn.
class wedge_scanconedistortion final : public wedge {
  public:
    wedge_scanconedistortion(vector3* beam_origin_out, vector3* beam_direction_out);
    /// A wedge, given a distortion; `beam_direction_0` is to be filled in.
    explicit wedge_scanconedistortion(const wedge& base);

    std::uint32_t kind() const override;
    void set_angles(std::uint32_t facet_index, double line, double frame) override;
    void write_members(json_writer& out) const override;
    void read_members(const boost::property_tree::ptree& tree) override;

    /// Prepares what follows from the parameters. Throws std::runtime_error "scanconedistortion
    /// table too small" for fewer than 4 nodes.
    void initialise();

    vector3 cone_axis_direction{0, 1, 0};
    vector3 beam_direction_0{0, 0, 1};  ///< undistorted beam at angle 0
    std::vector<distortion_node> nodes; ///< at least 4, evenly spaced over the turn

  private:
    distortion_table table_;
};

} // namespace scanlib
