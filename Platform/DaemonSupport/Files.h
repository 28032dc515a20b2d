// Files that a daemon keeps.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace DaemonSupport {

/// The whole content; nothing when there is no such file. Any other failure is told by `error`, "" otherwise.
std::optional<std::string> ReadFile(const std::string& path, std::string& error);

/// Replaces the file so that a reader, and a restart at any moment, finds either the old or the new content:
/// written beside it, brought to the disk, renamed. "" or the cause of a failure. Any thread.
std::string WriteFileAtomically(const std::string& path, std::string_view content);

/// Moves an unreadable file out of the way, beside itself. The new path; "" when that failed.
std::string SetAside(const std::string& path, std::string_view mark);

} // namespace DaemonSupport
