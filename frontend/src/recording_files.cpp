#include "recording_files.hpp"

#include "scanlib/file_connection.hpp"

namespace Riegl {

RecordingFiles files_of(const scanlib::basic_rconnection& connection) {
    RecordingFiles files;
    const scanlib::file_set_report* report = scanlib::report_of(connection);
    if (report == nullptr) {
        return files;
    }
    for (const scanlib::file_part& part : report->files.prefixes) {
        files.prefixes.emplace_back(part.name);
    }
    for (const scanlib::file_part& part : report->files.data) {
        files.data.emplace_back(part.name);
    }
    files.override_file = report->override_file;
    files.unread.assign(report->unread.begin(), report->unread.end());
    return files;
}

} // namespace Riegl
