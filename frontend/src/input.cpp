#include "frontend/conversion.hpp"

namespace Riegl {

ProgressMonitor::ProgressMonitor() = default;
ProgressMonitor::~ProgressMonitor() = default;
void ProgressMonitor::summarise(const ConversionSummary&) {}
void ProgressMonitor::connecting(const std::shared_ptr<StreamControl>&) {}
StreamControl::~StreamControl() = default;

std::string Input::speak() const {
    const auto answer = [](bool yes) { return yes ? " Yes" : "No"; };
    std::string text = "FragSize: " + std::to_string(FragSize) + " \n";
    text += std::string("ExportFWF? ") + answer(ExportFWF) + " \n";
    text += std::string("ExportOPP? ") + answer(ExportOPP) + " \n";
    text += "Exported_FWF_LENGTH: " + std::to_string(Exported_FWF_LENGTH) + " \n";
    text += "OutDir: " + OutDir.string() + " \n";
    text += "TimeRange: ";
    text +=
        TimeRange.available() ? std::to_string(*TimeRange) : " no range available (no fwf-print)";
    return text + "\n";
}

} // namespace Riegl
