// The registry of handler plug-ins, looked at before anything is started.
#pragma once

#include "KnxStackHost/Configuration/Configuration.h"

namespace KnxStackHost {

/// Checks "knxappprghandlers.xml" beside the project file: that it can be read, names a plug-in for the
/// application program, and that each of these libraries can be loaded. The program itself goes on without
/// its plug-ins when one fails, and then no group object has a data point. Nothing is checked for a
/// configuration without a project. Throws ConfigurationError.
void CheckHandlerRegistry(const Configuration& configuration);

} // namespace KnxStackHost
