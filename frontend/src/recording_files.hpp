#pragma once

#include "frontend/recording_files.hpp"
#include "scanlib/connection.hpp"

namespace Riegl {

/// The files that the connection has read, or would read next.
RecordingFiles files_of(const scanlib::basic_rconnection& connection);

} // namespace Riegl
