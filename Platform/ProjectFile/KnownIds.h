// The ids that data points of a device ever had, which a project must follow.
#pragma once

#include <boost/json/object.hpp>

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace ProjectFile {

class Project;

/// By URN; without the fixed data points. An id is never given to another URN, and a URN keeps its id.
using KnownIds = std::map<std::string, std::uint32_t, std::less<>>;

/// Their file in the state directory of the device stack.
constexpr const char* kIdsFile = "ids.json";

constexpr std::int64_t kStateFileVersion = 1;

/// Why the project may not follow the ids that were given before: a sentence with both URNs; "" when it may.
std::string IdConflict(const KnownIds& ids, const Project& project);

/// Reads the content of such a file. "" on success, else why it cannot be read; `ids` is then untouched.
std::string ReadKnownIds(std::string_view text, KnownIds& ids);

/// Hands the object `member` of a state file to `take`, when the file is of the version that is known; "" or
/// what is wrong, which may be what `take` says.
std::string ReadStateFile(std::string_view text, const char* member,
                          const std::function<std::string(const boost::json::object&)>& take);

/// Ids that cannot be read would become free for others: the sentence that says so.
std::string UnreadableIds(const std::string& path, const std::string& cause);

/// Why a project may not follow the ids in the state directory: one sentence; "" when it may, and when there
/// is no file of ids, or one that the asking user may not read. `projectName` is what messages call the
/// project.
std::string IdFaultOnDisk(const std::string& directory, const std::string& projectName,
                          const Project& project);

} // namespace ProjectFile
