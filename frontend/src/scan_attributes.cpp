#include "scan_attributes.hpp"

#include <algorithm>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QJsonValue>
#include <QString>

#include "bundle_interface/pulsekit.hpp"

namespace Riegl {

namespace {

constexpr std::size_t largest_table_bytes = 65532;

void say(const std::string& text) {
    Holdfast::Console() << text;
}

/// A number, or a text that holds one; 0 for anything else.
double number_of(const QJsonValue& value) {
    return value.isString() ? value.toString().toDouble() : value.toDouble(0.0);
}

struct t_ref_override {
    const char* recording;
    const char* shown;
    double value;
};

constexpr const char* overridden_instrument = "S2220213";
constexpr t_ref_override overrides[] = {
    {"190209_124210_Scanner_1.rxp", "1.58875e-7", 1.58875e-07},
    {"170822_103808_Scanner_1.rxp", "1.494e-7", 1.494e-07},
    {"200318_093330_Scanner_1.rxp", "1.85e-7", 1.85e-07},
};

Holdfast::StrongPtr<Holdfast::Chunk<float>> table_of(const QJsonArray& array) {
    const auto n = static_cast<std::size_t>(array.size());
    Holdfast::StrongPtr<Holdfast::Chunk<float>> table(new Holdfast::Chunk<float>(n));
    for (std::size_t i = 0; i < n; ++i) {
        table->data()[i] = static_cast<float>(number_of(array.at(static_cast<qsizetype>(i))));
    }
    return table;
}

} // namespace

ReflectanceAmplitudeAttributes parse_reflectance_amplitude_attributes(const std::string& json,
                                                                      Input& input) {
    ReflectanceAmplitudeAttributes result;
    if (json.empty()) {
        say("[parse_reflectance_amplitude_attributes] JSON string is empty.");
        return result;
    }
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(QByteArray::fromStdString(json), &error);
    if (error.error != QJsonParseError::NoError) {
        say("[parse_reflectance_amplitude_attributes] JSON parse error: " +
            error.errorString().toStdString());
        return result;
    }
    if (!document.object().contains("pointcloud")) {
        say("[parse_reflectance_amplitude_attributes] No 'pointcloud' found in metadata.");
        return result;
    }
    const QJsonObject pointcloud = document.object().value("pointcloud").toObject();
    result.ampl_unit = number_of(pointcloud.value("ampl_unit"));
    result.refltab_delta = number_of(pointcloud.value("refltab_delta"));
    if (!pointcloud.contains("refltab")) {
        say("[parse_reflectance_amplitude_attributes] No 'refltab' found in pointcloud.");
        return result;
    }
    result.refltab = table_of(pointcloud.value("refltab").toArray());
    if (result.refltab->size() * sizeof(float) > largest_table_bytes) {
        const std::string warning = "[parse_reflectance_amplitude_attributes] Warning: refl_table "
                                    "truncated to 16384 entries (64 KB limit).";
        say(warning);
        input.Errors += warning;
    }
    return result;
}

void override_t_ref(AttributesForFWFProcessing& attributes, const std::filesystem::path& file,
                    Input& input) {
    if (attributes.serial != overridden_instrument) {
        return;
    }
    const PulseKit::Chronometry made(file.filename().string());
    const auto* found =
        std::find_if(std::begin(overrides), std::end(overrides), [&](const t_ref_override& o) {
            const PulseKit::Chronometry wanted(o.recording);
            return made.date == wanted.date && made.time == wanted.time;
        });
    if (found == std::end(overrides)) {
        return;
    }
    const std::string message =
        std::string("Warning: Overwrite t_ref ") + found->shown +
        " based on date: " + PulseKit::Chronometry(found->recording).ddmmyyyy('.');
    say(message);
    input.Errors += message;
    attributes.t_ref = found->value;
}

} // namespace Riegl
