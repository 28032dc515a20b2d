// What the device stack remembers across its restarts.
#pragma once

#include "DeviceStackServer/Instant.h"
#include "ProjectFile/KnownIds.h"

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace DeviceStackServer {

/// A persistent value; "" is a value that was marked invalid.
struct StoredValue {
    std::string text;
    std::string origin;
    Milliseconds utc{};

    bool operator==(const StoredValue&) const = default;
};

/// Every URN that ever had an id, and the values of persistent data points.
struct StateImage {
    ProjectFile::KnownIds ids;
    std::map<std::string, StoredValue, std::less<>> values; ///< by URN

    bool operator==(const StateImage&) const = default;
};

/// Remembers the ids of the project. True when one was new.
bool AdoptIds(StateImage& image, const ProjectFile::Project& project);

/// The files that hold the two parts: JSON with a version, one data point a line. The ids have a file of
/// their own because they change with a project and not with a value.
std::string WriteIds(const StateImage& image);
std::string WriteValues(const StateImage& image);

/// Reads such a file into its part of `image`. "" on success, else why it cannot be read; `image` is then
/// untouched.
std::string ReadIds(std::string_view text, StateImage& image);
std::string ReadValues(std::string_view text, StateImage& image);

} // namespace DeviceStackServer
