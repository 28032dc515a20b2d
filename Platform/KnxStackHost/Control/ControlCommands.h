// The messages of the control socket: requests carried out, answers and telegrams written.
#pragma once

#include "KnxStackHost/Control/ControlTarget.h"
#include "KnxStackHost/Control/TelegramText.h"

#include <chrono>
#include <string>
#include <string_view>

namespace KnxStackHost {

/// Carries out one request of a client. `watches` is whether the client is told of telegrams, before and
/// after. Returns the line that answers it, with its line feed; "" for a notification. Whatever the request
/// is, this throws nothing but what `target` throws.
std::string AnswerControl(std::string_view request, ControlTarget& target, bool& watches);

/// The message that tells a client of a telegram, with its line feed. `via` is where it came from: "tunnel
/// 1.1.251", "interface", ...
std::string TelegramMessage(const KnxFrames::LData& telegram, const TelegramWords& words,
                            const std::string& via, std::chrono::system_clock::time_point now);

/// The line for a client that cannot be served.
std::string RefusalMessage(std::string_view cause);

} // namespace KnxStackHost
