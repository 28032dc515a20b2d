// Threads of the client: named for a debugger, and deaf to the signals of the process they live in.
#pragma once

#include <functional>
#include <thread>

namespace DeviceStackClient {

/// `name` has at most 15 characters. The thread blocks all signals but its own faults, so that a host's
/// handlers run on the host's own threads.
std::thread StartThread(const char* name, std::function<void()> body);

} // namespace DeviceStackClient
