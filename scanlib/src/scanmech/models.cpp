#include "scanlib/gimbalmountmirror.hpp"
#include "scanlib/mirrorwheel_biaxial.hpp"
#include "scanlib/mirrorwheel_deflection_windowdistortion.hpp"
#include "scanlib/mirrorwheel_exitpane.hpp"
#include "scanlib/mirrorwheel_facetsurfacedistortion.hpp"
#include "scanlib/mirrorwheel_fanbeam.hpp"
#include "scanlib/mirrorwheel_nodding.hpp"
#include "scanlib/mirrorwheel_windowdistortion.hpp"
#include "scanlib/scanmech_meta.hpp"
#include "scanlib/wedge_scanconedistortion.hpp"

#include <boost/property_tree/ptree.hpp>

#include <array>
#include <stdexcept>
#include <string_view>

namespace scanlib {

namespace {

/// What is to be known of a class to make one from its number or its word.
struct model {
    scanmech_kind kind;
    std::string_view word;
    bool by_number;
    std::unique_ptr<scanmech> (*make)(vector3*, vector3*);
    void (*initialise)(scanmech&);
};

template<class Class>
constexpr model entry(scanmech_kind kind, std::string_view word, bool by_number) {
    return {kind, word, by_number,
            [](vector3* origin, vector3* direction) -> std::unique_ptr<scanmech> {
                return std::make_unique<Class>(origin, direction);
            },
            [](scanmech& mech) { static_cast<Class&>(mech).initialise(); }};
}

constexpr std::array models = {
    entry<mirrorwheel>(kind_mirrorwheel, "mirrorwheel", true),
    entry<wedge>(kind_wedge, "wedge", true),
    entry<mirrorwheel_exitpane>(kind_mirrorwheel_exitpane, "mirrorwheel_exitpane", true),
    entry<mirrorwheel_deflection>(kind_mirrorwheel_deflection, "mirrorwheel_deflection", true),
    entry<mirrorwheel_biaxial>(kind_mirrorwheel_biaxial, "mirrorwheel_biaxial", true),
    entry<mirrorwheel_nodding>(kind_mirrorwheel_nodding, "mirrorwheel_nodding", true),
    entry<gimbalmountmirror>(kind_gimbalmountmirror, "gimbalmountmirror", true),
    entry<mirrorwheel_deflection_windowdistortion>(kind_mirrorwheel_deflection_windowdistortion,
                                                   "mirrorwheel_deflection_windowdistortion", true),
    entry<mirrorwheel_windowdistortion>(kind_mirrorwheel_windowdistortion,
                                        "mirrorwheel_windowdistortion", true),
    entry<wedge_scanconedistortion>(kind_wedge_scanconedistortion, "wedge_scanconedistortion",
                                    false),
    entry<mirrorwheel_scanconedistortion>(kind_mirrorwheel_scanconedistortion,
                                          "mirrorwheel_scanconedistortion", false),
    entry<mirrorwheel_facetsurfacedistortion>(kind_mirrorwheel_facetsurfacedistortion,
                                              "mirrorwheel_facetsurfacedistortion", false),
    entry<mirrorwheel_facetsurfacedistortion_D>(kind_mirrorwheel_facetsurfacedistortion_D,
                                                "mirrorwheel_facetsurfacedistortion_D", false),
    entry<mirrorwheel_fanbeam>(kind_mirrorwheel_fanbeam, "mirrorwheel_fanbeam", false),
};

const model* model_of(std::uint32_t kind) noexcept {
    for (const model& m : models) {
        if (m.kind == kind) {
            return &m;
        }
    }
    return nullptr;
}

[[noreturn]] void refuse() {
    throw std::runtime_error("scanmech::create: unknown kind");
}

} // namespace

std::unique_ptr<scanmech> scanmech::create(std::uint32_t kind, vector3* beam_origin_out,
                                           vector3* beam_direction_out) {
    const model* m = model_of(kind);
    if (m == nullptr || !m->by_number) {
        refuse();
    }
    return m->make(beam_origin_out, beam_direction_out);
}

void scanmech::write(json_writer& out) const {
    const model* m = model_of(kind());
    out.begin_object().member("kind", m != nullptr ? m->word : std::string_view("unknown"));
    write_members(out);
    out.end_object();
}

std::unique_ptr<scanmech> scanmech_from_meta(const boost::property_tree::ptree& tree,
                                             vector3* beam_origin_out,
                                             vector3* beam_direction_out) {
    const auto word = tree.find("kind");
    for (const model& m : models) {
        if (word != tree.not_found() && word->second.data() == m.word) {
            auto mech = m.make(beam_origin_out, beam_direction_out);
            mech->read_members(tree);
            m.initialise(*mech);
            return mech;
        }
    }
    refuse();
}

void read_meta(scanmech& mech, const boost::property_tree::ptree& tree) {
    mech.read_members(tree);
    if (const model* m = model_of(mech.kind())) {
        m->initialise(mech);
    } else {
        mech.initialise();
    }
}

} // namespace scanlib
