// Where the daemon's log goes.
#pragma once

#include "KnxStackHost/Configuration.h"

namespace KnxStackHost {

/// Sends all loggers to standard error and, when one is named, to the end of a file: time, level, logger,
/// message. Before the first logger is used. Throws ConfigurationError when the file cannot be written.
void StartLogging(const LogSettings& settings);

/// Changes the level of all loggers; one of those IsLogLevel() knows.
void SetLogLevel(const std::string& level);

} // namespace KnxStackHost
