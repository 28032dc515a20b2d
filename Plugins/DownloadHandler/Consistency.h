// Whether the project of a download fits the device that it was loaded into.
#pragma once

#include "ProjectFile/Project.h"
#include "Vesk/KnxAppPrg.h"

#include <string>

namespace Download {

/// The first data point, or the clock, with a CO that is not among `coDescriptors` with its communication
/// enabled; as a sentence, "" when there is none.
std::string CoFault(const ProjectFile::Project& project,
                    const Vesk::KnxAppPrg::CoDescriptorDataMap& coDescriptors);

/// What the interface objects have against the project, as a sentence; "" when nothing. The program's own
/// object must be one of `interfaceObjects`: with an object that the device lacks the application program
/// does not start. A property that an object has already keeps data type and number of elements, for it
/// cannot be registered again with others; `current`, the project in force, knows them. `current` may be
/// null.
std::string InterfaceObjectFault(const ProjectFile::Project& project, const ProjectFile::Project* current,
                                 const Vesk::KnxAppPrg::InterfaceObjectMap& interfaceObjects);

} // namespace Download
