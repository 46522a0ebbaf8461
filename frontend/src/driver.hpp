#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

#include "frontend/conversion.hpp"
#include "scanlib/connection.hpp"

namespace Riegl {

/// How many packets a stream is thought to have, and after how many of them progress is reported.
struct ProgressScale {
    int total;
    int step; ///< at least 1
};

/// Scale for a stream of `size` bytes; -1 stands for an unknown size.
ProgressScale progress_scale(std::int64_t size);

/// Makes the connection to the stream of a URI, owned by the caller; null or an exception where
/// there is none.
using ConnectionFactory = std::function<scanlib::basic_rconnection*(const std::string& uri)>;

/// rxpToSkeinK7 over the connection that `connect` makes.
///
/// The bundle file replaces one of an earlier run only once the stream was opened; before, a
/// failure leaves no file behind.
std::string convert_stream(const std::filesystem::path& file, Input& input,
                           const ConnectionFactory& connect);

} // namespace Riegl
