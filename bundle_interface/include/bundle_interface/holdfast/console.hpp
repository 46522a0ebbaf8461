#pragma once

#include <functional>
#include <string>

#include "bundle_interface/export.hpp"

namespace Holdfast {

/// Collects text and delivers it as one message when destroyed. A message goes to the sink of the
/// process, by default one line a message on standard error. Never throws on delivery.
class RXP2K7_EXPORT Console {
  public:
    /// Takes one message, without an end of line.
    using Sink = std::function<void(const std::string& message)>;

    Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;
    ~Console();

    /// Appends text, which is not null, to the message.
    Console& operator<<(const char* text);
    /// Appends text to the message.
    Console& operator<<(const std::string& text);

    /// Sets where messages go; an empty sink restores standard error. Calls of the sink never
    /// overlap; a sink must not use the console. What a sink throws is dropped.
    static void setSink(Sink sink);

  private:
    std::string text_;
};

} // namespace Holdfast
