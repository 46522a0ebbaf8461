#include "recording_pointcloud.hpp"
#include "scanlib/packet_record.hpp"
#include "valid_streams.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <functional>
#include <limits>
#include <random>
#include <sstream>
#include <stdexcept>

// Whole measurements in which one field of one packet is impossible.

using namespace scanlib;
using namespace scanlib::testing;

namespace {

/// Runs a stream and asks for all that a consumer may ask for. Refused packets are passed over, as
/// long as they say why. Returns the shots and echoes that came out.
std::size_t run(const packet_list& packets) {
    fed_pointcloud cloud;
    for (const stream_packet& p : packets) {
        std::vector<std::uint32_t> words{0xFFFFFFFF, p.id.id << 16 | p.id.version};
        words.insert(words.end(), p.payload.begin(), p.payload.end());
        try {
            cloud.dispatch(words.data(), words.data() + words.size());
        } catch (const std::exception& e) {
            EXPECT_STRNE(e.what(), "");
        }
    }
    if (cloud.measurement_started) {
        std::ostringstream out;
        cloud.get_meta(out, true);
    }
    // Nothing in these streams asks for more than this.
    EXPECT_LT(cloud.history.size(), 65537U);
    EXPECT_LT(cloud.targets.size(), 1000U);
    EXPECT_LT(cloud.gap_pulses.size(), 70000U);
    return cloud.shots.size() + cloud.reported.size();
}

constexpr double odd_numbers[] = {std::numeric_limits<double>::quiet_NaN(),
                                  std::numeric_limits<double>::infinity(),
                                  -std::numeric_limits<double>::infinity(),
                                  0.0,
                                  -1.0,
                                  3.4e38,
                                  1e-44};

std::uint64_t bits_of(double number, std::uint32_t width) {
    return width == 32 ? std::bit_cast<std::uint32_t>(static_cast<float>(number))
                       : std::bit_cast<std::uint64_t>(number);
}

using visit_field = std::function<void(std::size_t bit, std::uint32_t width, field_type type)>;

void visit(const field_layout& field, std::size_t base, const visit_field& see) {
    for (std::uint32_t i = 0; i < std::max(field.count, 1U); ++i) {
        see(base + field.bit + i * field.width, field.width, field.type);
    }
}

/// All fields of a packet that lie in its payload, those of the first and last element too.
void visit_fields(const stream_packet& p, const visit_field& see_any) {
    const packet_layout& layout = layout_of(index_of(p.id));
    const std::size_t bits = p.payload.size() * 32;
    const visit_field see = [&](std::size_t bit, std::uint32_t width, field_type type) {
        if (width != 0 && width <= 64 && bit + width <= bits) {
            see_any(bit, width, type);
        }
    };
    for (const field_layout& field : layout.fields) {
        visit(field, 0, see);
    }
    if (layout.is_variable) {
        // What the catalogue leaves open is floats in every kind that is heard.
        for (std::size_t bit = layout.fixed_bits; bit + 32 <= bits; bit += 32) {
            see(bit, 32, field_type::floating);
        }
        return;
    }
    const std::size_t elements =
        layout.element_bits == 0 ? 0 : (bits - layout.fixed_bits) / layout.element_bits;
    for (const std::size_t i : {std::size_t{0}, elements - 1}) {
        if (elements == 0) {
            break;
        }
        const std::size_t base = layout.fixed_bits + i * layout.element_bits;
        for (const field_layout& field : layout.element_fields) {
            visit(field, base, see);
        }
        if (layout.element_fields.empty()) {
            const bool real =
                layout.name.starts_with("dyntrig") || layout.name.starts_with("pulse");
            see(base, layout.element_bits,
                real ? field_type::floating : field_type::unsigned_integer);
        }
    }
}

/// Runs the stream once for each of the values that `values` gives for a field. Returns how often.
std::size_t try_all(
    const packet_list& stream,
    const std::function<std::vector<std::uint64_t>(std::uint32_t width, field_type type)>& values) {
    std::size_t runs = 0;
    for (std::size_t n = 0; n < stream.size(); ++n) {
        const bool seen = [&] {
            for (std::size_t before = 0; before < n; ++before) {
                if (stream[before].id == stream[n].id &&
                    stream[before].payload.size() == stream[n].payload.size()) {
                    return true;
                }
            }
            return false;
        }();
        if (seen) {
            continue;
        }
        visit_fields(stream[n], [&](std::size_t bit, std::uint32_t width, field_type type) {
            for (const std::uint64_t value : values(width, type)) {
                packet_list changed = stream;
                packets::detail::insert_bits(changed[n].payload.data(), bit, width, value);
                run(changed);
                ++runs;
            }
        });
    }
    return runs;
}

class field_values : public ::testing::TestWithParam<named_stream> {};

INSTANTIATE_TEST_SUITE_P(pointcloud, field_values, ::testing::ValuesIn(valid_streams),
                         [](const auto& chosen) { return std::string(chosen.param.name); });

} // namespace

TEST_P(field_values, valid_stream_gives_shots_and_echoes_and_no_failure) {
    fed_pointcloud cloud;
    for (const stream_packet& p : GetParam().make()) {
        std::vector<std::uint32_t> words{0xFFFFFFFF, p.id.id << 16 | p.id.version};
        words.insert(words.end(), p.payload.begin(), p.payload.end());
        EXPECT_NO_THROW(cloud.dispatch(words.data(), words.data() + words.size())) << name_of(p.id);
    }
    EXPECT_GE(cloud.shots.size(), 4U);
    EXPECT_GE(cloud.reported.size(), 7U);
}

TEST_P(field_values, impossible_floats_in_any_field_do_not_fault) {
    const std::size_t runs = try_all(GetParam().make(), [](std::uint32_t width, field_type type) {
        std::vector<std::uint64_t> values;
        if (type == field_type::floating) {
            for (const double number : odd_numbers) {
                values.push_back(bits_of(number, width));
            }
        }
        return values;
    });
    EXPECT_GT(runs, 30U);
}

TEST_P(field_values, extreme_counts_in_any_field_do_not_fault) {
    const std::size_t runs = try_all(GetParam().make(), [](std::uint32_t width, field_type type) {
        if (type == field_type::floating || type == field_type::text) {
            return std::vector<std::uint64_t>{};
        }
        const std::uint64_t all = width == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << width) - 1;
        return std::vector<std::uint64_t>{0, 1, all, all >> 1, (all >> 1) + 1};
    });
    EXPECT_GT(runs, 50U);
}

TEST_P(field_values, any_packet_may_be_missing_doubled_or_cut) {
    const packet_list stream = GetParam().make();
    for (std::size_t n = 0; n < stream.size(); ++n) {
        packet_list missing = stream;
        missing.erase(missing.begin() + static_cast<std::ptrdiff_t>(n));
        run(missing);
        packet_list doubled = stream;
        doubled.insert(doubled.begin(), stream[n]);
        EXPECT_GT(run(doubled), 0U);
        packet_list cut = stream;
        cut[n].payload.resize(cut[n].payload.size() / 2);
        run(cut);
    }
}

TEST_P(field_values, packets_in_any_order_do_not_fault) {
    std::mt19937 random(11);
    packet_list stream = GetParam().make();
    std::size_t results = 0;
    for (int i = 0; i < 200; ++i) {
        std::shuffle(stream.begin(), stream.end(), random);
        results += run(stream);
    }
    EXPECT_GT(results, 0U);
}

TEST_P(field_values, every_number_of_elements_does_not_fault) {
    const packet_list stream = GetParam().make();
    std::size_t results = 0;
    for (std::size_t n = 0; n < stream.size(); ++n) {
        const packet_layout& layout = layout_of(index_of(stream[n].id));
        if (!layout.has_sequence && !layout.is_variable) {
            continue;
        }
        for (std::size_t words = layout.fixed_bits / 32; words < stream[n].payload.size() + 12;
             ++words) {
            packet_list changed = stream;
            changed[n].payload.resize(words);
            results += run(changed);
        }
    }
    EXPECT_GT(results, 0U);
}
