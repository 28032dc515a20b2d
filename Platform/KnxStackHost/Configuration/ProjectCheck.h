// Compares the group and interface objects of the host with what a project says of them.
#pragma once

#include "KnxStackHost/Configuration/Configuration.h"

#include <string>
#include <vector>

namespace ProjectFile {
class Project;
}

namespace KnxStackHost {

/// Reads the configuration's project file as the plug-ins will. Throws ConfigurationError with what is wrong
/// in it: with a file that is refused the program would run without any binding. Nothing is read for a
/// configuration without a project.
///
/// From then on the group objects of its translation range take none of the device's own telegrams, whatever
/// the configuration says of them: what another application sends on one of them must not come back to it
/// from a second one.
void CheckProjectFile(Configuration& configuration);

/// What the two files have against each other, a sentence each.
struct ProjectFindings {
    std::vector<std::string> faults; ///< telegrams or values would be lost
    std::vector<std::string> notes;  ///< worth knowing, and possibly meant so
};

/// A fault: an owner of the KNX data points that is not the application program; a CO of a data point or
/// clock that is no group object, does not take part in communication, or has another size or another main
/// type; an own interface object that the device has not; a property that the device has with another data
/// type or number of elements. A note: a group object that nothing is bound to.
ProjectFindings CompareWithProject(const Configuration& configuration, const ProjectFile::Project& project);

} // namespace KnxStackHost
