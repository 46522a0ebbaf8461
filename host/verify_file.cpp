#include "verify_file.hpp"

#include "verify_columns.hpp"
#include "verify_layout.hpp"
#include "verify_values.hpp"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <optional>
#include <set>
#include <utility>

#include "bundle_interface/k7_names.hpp"

namespace host {

namespace {

using Skein::K7Attribute;
using Skein::K7Reader;
using Skein::K7Type;

std::string quoted(std::string_view text) {
    return std::string("\"").append(text).append("\"");
}

/// One run over a file.
class file_check {
  public:
    file_check(const K7Reader& file, bool complete, k7_findings& findings, k7_counts& counts,
               verify_depth depth)
        : file_(file), complete_(complete), findings_(findings), counts_(counts), depth_(depth) {}

    void run() {
        attempt("/", [&] { check_root(); });
        attempt("/", [&] { check_slices(); });
        counts_.fragments = numbers_.size();
    }

  private:
    /// What cannot be read is a finding as well; the rest is still looked at.
    template<class Run>
    void attempt(const std::string& place, Run&& run) {
        try {
            run();
        } catch (const Skein::K7ReadError& e) {
            findings_.add(e.object().empty() ? place : e.object(), e.cause());
        }
    }

    std::optional<K7Attribute> attribute(const std::string& path, std::string_view name) {
        std::optional<K7Attribute> found;
        attempt(path, [&] {
            found = file_.attribute(path, std::string(name));
            if (!found) {
                findings_.add(path, "attribute " + quoted(name) + " is missing");
            }
        });
        return found;
    }

    /// The attribute if it is there and has that type and form.
    std::optional<K7Attribute> typed(const std::string& path, std::string_view name, K7Type type,
                                     bool scalar = true) {
        auto found = attribute(path, name);
        if (found && (found->type != type || found->scalar != scalar)) {
            findings_.add(path, "attribute " + quoted(name) + " is " +
                                    (found->scalar ? "a single " : "an array of ") +
                                    nameOf(found->type) + ", not " +
                                    (scalar ? "a single " : "an array of ") + nameOf(type));
            found.reset();
        }
        return found;
    }

    void expect_text(const std::string& path, std::string_view name, std::string_view wanted) {
        const auto found = typed(path, name, K7Type::text);
        if (found && found->text != wanted) {
            findings_.add(path, "attribute " + quoted(name) + " is " + quoted(found->text) +
                                    ", not " + quoted(wanted));
        }
    }

    void expect_number(const std::string& path, std::string_view name, K7Type type,
                       std::uint32_t wanted) {
        const auto found = typed(path, name, type);
        if (found && found->numbers.front() != wanted) {
            findings_.add(path, "attribute " + quoted(name) + " is not " + std::to_string(wanted));
        }
    }

    void check_root() {
        expect_text("/", "Format", "K7");
        expect_number("/", "FormatVersion", K7Type::u32, 1);
        const auto creator = typed("/", "Creator", K7Type::text);
        if (creator && creator->text.empty()) {
            findings_.add("/", "attribute \"Creator\" is empty");
        }
    }

    void check_slices() {
        const std::vector<std::string> slices = file_.slices();
        if (slices.empty()) {
            findings_.add("/", "there is no slice");
        }
        for (std::size_t i = 0; i < slices.size(); ++i) {
            if (slices[i] != Skein::k7::slicePath(static_cast<std::uint32_t>(i))) {
                findings_.add(slices[i], "slices are not numbered from 0 without gaps");
            }
            attempt(slices[i], [&] { check_slice(slices[i]); });
        }
    }

    void check_slice(const std::string& slice) {
        if (!is_group(slice)) {
            return;
        }
        const auto time = typed(slice, "Time", K7Type::f64);
        if (time && !std::isfinite(time->numbers.front())) {
            findings_.add(slice, "attribute \"Time\" is not finite");
        }
        for (const k7_grid& grid : k7_grids()) {
            const std::string path = slice + "/" + std::string(grid.name);
            attempt(path, [&] {
                const K7Reader::Kind kind = file_.kindOf(path);
                if (kind == K7Reader::Kind::none) {
                    if (grid.required) {
                        findings_.add(path, "the grid is missing");
                    }
                } else if (is_group(path)) {
                    check_grid(path, grid);
                }
            });
        }
    }

    bool is_group(const std::string& path) {
        const bool good = file_.kindOf(path) == K7Reader::Kind::group;
        if (!good) {
            findings_.add(path, file_.kindOf(path) == K7Reader::Kind::none
                                    ? "it is missing"
                                    : "it is not a group of this file");
        }
        return good;
    }

    void check_grid(const std::string& path, const k7_grid& grid) {
        if (grid.scan_attributes) {
            check_scan_attributes(path);
        }
        const std::string chart = K7Reader::chartOf(path);
        if (!is_group(chart)) {
            return;
        }
        expect_text(chart, "Chart", chart.substr(chart.rfind('/') + 1));
        expect_number(chart, "Dimension", K7Type::i32, 3);
        typed(chart, "Parameter", K7Type::u16);
        std::vector<field> fields;
        for (const k7_column& column : grid.columns) {
            const std::string at = chart + "/" + std::string(column.name);
            attempt(at, [&] { check_field(at, column, fields); });
        }
        check_fragments(grid, fields);
        check_columns(path, fields);
    }

    /// Either none of them, or all that are required.
    void check_scan_attributes(const std::string& path) {
        const bool any =
            std::any_of(k7_scan_attributes().begin(), k7_scan_attributes().end(),
                        [&](const auto& a) { return has_attribute(path, std::string(a.name)); });
        for (const k7_scan_attribute& a : k7_scan_attributes()) {
            if (!any || (!a.required && !has_attribute(path, std::string(a.name)))) {
                continue;
            }
            const auto found = typed(path, a.name, a.type, a.scalar);
            const bool odd =
                found && std::any_of(found->numbers.begin(), found->numbers.end(), [&](double v) {
                    return !std::isfinite(v) && !(a.may_be_nan && std::isnan(v));
                });
            if (odd) {
                findings_.add(path, "attribute " + quoted(a.name) + " is not finite");
            }
        }
    }

    bool has_attribute(const std::string& path, const std::string& name) {
        bool found = true; // one that cannot be read is there
        try {
            found = file_.attribute(path, name).has_value();
        } catch (const Skein::K7ReadError&) {
        }
        return found;
    }

    struct field {
        const k7_column* column;
        std::string path;
        std::vector<std::uint32_t> numbers;
        column_source whole;
        bool sound = true; // all its fragments are as they should be
    };

    void check_field(const std::string& path, const k7_column& column, std::vector<field>& to) {
        if (!is_group(path)) {
            return;
        }
        expect_text(path, "Element", column.element);
        expect_number(path, "Components", K7Type::u32, column.components);
        expect_text(path, "units", column.units);
        K7Reader::Fragments found = file_.fragments(path);
        for (const std::string& name : found.others) {
            findings_.add(path + "/" + name, "the name is no fragment's");
        }
        if (column.name == "GPSTime" && !found.numbers.empty()) {
            const auto added = typed(path, "LeapSecondsAdded?", K7Type::u8, false);
            if (added && added->numbers.size() != 1) {
                findings_.add(path, "attribute \"LeapSecondsAdded?\" has not one value");
            }
        }
        to.push_back({&column, path, std::move(found.numbers), {&column, {}, 0, 0}});
    }

    void check_fragments(const k7_grid& grid, std::vector<field>& fields) {
        std::set<std::uint32_t> all;
        for (const field& f : fields) {
            all.insert(f.numbers.begin(), f.numbers.end());
        }
        value_check values(findings_);
        for (const std::uint32_t number : all) {
            numbers_.insert(number);
            check_fragment(grid, fields, number, values);
        }
    }

    void check_fragment(const k7_grid& grid, std::vector<field>& fields, std::uint32_t number,
                        value_check& values) {
        std::vector<Skein::K7Array> arrays;
        arrays.reserve(fields.size()); // parts point into it
        std::vector<value_check::part> parts;
        std::optional<std::uint64_t> rows;
        std::string rows_of;
        for (field& f : fields) {
            const std::string path = K7Reader::fragmentPath(f.path, number);
            const std::uint64_t findings_before = findings_.count();
            if (!std::binary_search(f.numbers.begin(), f.numbers.end(), number)) {
                findings_.add(path, "the fragment is missing, other columns have it");
                f.sound = false;
                continue;
            }
            attempt(path, [&] {
                Skein::K7Array array = file_.open(path);
                if (!rows) {
                    rows = array.rows();
                    rows_of = f.column->name;
                } else if (array.rows() != *rows) {
                    findings_.add(path, std::to_string(array.rows()) + " rows, but " +
                                            quoted(rows_of) + " has " + std::to_string(*rows));
                }
                if (fits(path, array, *f.column)) {
                    note_rows(f.whole, path, array);
                    arrays.push_back(std::move(array));
                    parts.push_back({f.column, path, &arrays.back()});
                }
            });
            f.sound = f.sound && findings_.count() == findings_before;
        }
        if (rows && *rows == 0) {
            findings_.add(K7Reader::fragmentPath(fields.front().path, number),
                          "the fragment has no rows; then it has no entry");
        }
        count_rows(grid, rows.value_or(0));
        if (depth_ == verify_depth::values) {
            values.look_at(parts);
        }
    }

    static void note_rows(column_source& to, const std::string& path, const Skein::K7Array& array) {
        if (array.rows() != 0 && array.width() != 0) {
            to.fragments.push_back({path, to.rows, array.rows(), array.width()});
        }
        to.rows += array.rows();
        to.widest = std::max(to.widest, array.width());
    }

    /// Columns over fragments that are wrong themselves would only say so again.
    void check_columns(const std::string& grid, std::vector<field>& fields) {
        std::vector<column_source> sources;
        for (field& f : fields) {
            if (f.sound) {
                sources.push_back(std::move(f.whole));
            }
        }
        verify_columns(file_, grid, sources, complete_, findings_);
    }

    bool fits(const std::string& path, const Skein::K7Array& array, const k7_column& column) {
        const std::size_t rank = column.width == 1 ? 1 : 2;
        if (array.type() != column.type) {
            findings_.add(path, std::string("it holds ") + nameOf(array.type()) + ", not " +
                                    nameOf(column.type));
            return false;
        }
        if (array.shape().size() != rank) {
            findings_.add(path, std::to_string(array.shape().size()) + " dimensions, not " +
                                    std::to_string(rank));
            return false;
        }
        if (column.width != any_width && array.width() != column.width) {
            findings_.add(path, std::to_string(array.width()) + " values in a row, not " +
                                    std::to_string(column.width));
            return false;
        }
        return true;
    }

    void count_rows(const k7_grid& grid, std::uint64_t rows) {
        (grid.name == "Shots" ? counts_.shots
         : grid.name == "OPP" ? counts_.echoes
                              : counts_.waveforms) += rows;
    }

    const K7Reader& file_;
    const bool complete_;
    k7_findings& findings_;
    k7_counts& counts_;
    verify_depth depth_;
    std::set<std::uint32_t> numbers_;
};

} // namespace

void verify_k7_file(const std::string& path, k7_findings& findings, k7_counts& counts,
                    verify_depth depth) {
    const K7Reader file(path);
    const bool complete = !path.ends_with(".part");
    if (!complete) {
        findings.add("/", "the file is not complete: its name still ends with .part");
    }
    file_check(file, complete, findings, counts, depth).run();
}

} // namespace host
