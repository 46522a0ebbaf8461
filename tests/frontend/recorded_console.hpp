#pragma once

#include <string>
#include <vector>

#include "bundle_interface/holdfast.hpp"

namespace frontend_test {

/// Keeps the console's messages while it lives.
class RecordedConsole {
  public:
    RecordedConsole() {
        Holdfast::Console::setSink([this](const std::string& m) { messages.push_back(m); });
    }
    RecordedConsole(const RecordedConsole&) = delete;
    RecordedConsole& operator=(const RecordedConsole&) = delete;
    ~RecordedConsole() { Holdfast::Console::setSink({}); }

    std::vector<std::string> messages;
};

} // namespace frontend_test
