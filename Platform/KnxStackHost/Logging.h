// Where the daemon's log goes.
#pragma once

#include "KnxStackHost/Configuration/Configuration.h"

namespace KnxStackHost {

/// Sends all loggers to standard error and, when one is named, to the end of a file: time, level, logger,
/// message. Before the first logger is used. Whether the file can be written is for the caller to see to.
void StartLogging(const LogSettings& settings);

} // namespace KnxStackHost
