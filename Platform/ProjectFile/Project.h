// The project file: the data points of a device and how they are bound to KNX.
#pragma once

#include "Vesk/KNXDPT.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace ProjectFile {

/// Data point ids with a fixed role. They exist in every project, listed or not.
namespace FixedId {
constexpr std::uint32_t kDevice = 1000;    ///< the device itself: its URN has no name part
constexpr std::uint32_t kVersion = 1001;   ///< version of the device stack
constexpr std::uint32_t kReady = 1002;     ///< 1 while the application program is configured and running
constexpr std::uint32_t kState = 1003;     ///< start-up state, 0 to 2
constexpr std::uint32_t kRestart = 1004;   ///< trigger: restarts the device
constexpr std::uint32_t kClock = 1005;     ///< local date and time
constexpr std::uint32_t kClockDate = 1006; ///< local date
constexpr std::uint32_t kClockTime = 1007; ///< local time of day
constexpr std::uint32_t kFirst = kDevice;
constexpr std::uint32_t kLast = kClockTime;
} // namespace FixedId

/// How the application program names data points towards its plug-ins.
enum class Identification { Id, Urn };

/// What applications other than the owner may do with a data point.
enum class Access { Read, Write, ReadWrite };

/// "r", "w" or "rw".
std::string_view ToText(Access access);

constexpr bool MayRead(Access access) {
    return access != Access::Write;
}
constexpr bool MayWrite(Access access) {
    return access != Access::Read;
}

/// Group objects of a data point, by CO number; 0 = none. At least one of the two is set.
struct KnxBinding {
    std::uint16_t readCo = 0;  ///< the data point is read through it, and its changes are sent on it
    std::uint16_t writeCo = 0; ///< a value that somebody writes to the data point is sent on it
    bool event = true;         ///< changes are sent on the bus
    bool readInternal = false; ///< the device stack holds the value: bus writes and reads go to its store

    bool operator==(const KnxBinding&) const = default;
};

struct DataPoint {
    std::uint32_t id = 0;
    std::string name;    ///< last part of the URN; also of the fixed data points ("clock.date")
    std::string urn;     ///< "urn:oxn:dp:<device>:<name>"; of FixedId::kDevice "urn:oxn:dp:<device>"
    KNXDPT dpt;          ///< the type for the converter, with its size modulo 256; 0 for a variable length
    std::string dptText; ///< the type for people: "9.001", or "9.xxx" when only the main number is given
    std::string unit;    ///< as given, else the type's
    std::string description;
    Access access = Access::ReadWrite;
    std::optional<std::string> initial; ///< value text at the first start; fits the type
    bool persistent = false;            ///< the value survives a restart
    std::string owner;                  ///< identity "name::type::instance" that is asked; "" = nobody
    std::optional<KnxBinding> knx;

    bool IsFixed() const { return id >= FixedId::kFirst && id <= FixedId::kLast; }

    bool operator==(const DataPoint&) const = default;
};

/// The flags of a binding that names none, without COs: some fixed data points differ from the others.
KnxBinding DefaultBinding(std::uint32_t id);

/// A group object that carries the date, the time of day, or both, of FixedId::kClock.
struct TimeCo {
    std::uint16_t co = 0;
    KNXDPT dpt; ///< main number 10, 11 or 19

    bool operator==(const TimeCo&) const = default;
};

/// First and last CO whose telegrams go to another application. {0, 0} = none.
struct CoRange {
    std::uint16_t first = 0;
    std::uint16_t last = 0;

    bool Contains(std::uint16_t co) const { return first != 0 && co >= first && co <= last; }

    bool operator==(const CoRange&) const = default;
};

/// A KNX property of the program's own interface object.
struct Property {
    std::uint16_t id = 0; ///< PID
    std::string name;
    std::uint8_t dataType = 0; ///< PDT
    std::uint16_t elements = 1;

    bool operator==(const Property&) const = default;
};

/// A KNX property of `instances` further interface objects of a type.
struct ExtendedProperty {
    Property property;
    std::uint16_t objectType = 0;
    std::uint16_t instances = 1;

    bool operator==(const ExtendedProperty&) const = default;
};

/// A checked project; immutable once loaded, so that any number of threads may read it. The fixed data points
/// come first, in the order of their ids, then the others in the order of the file.
class Project {
public:
    static constexpr std::string_view kDefaultKnxOwner = "DscKnxAppPrg::field::KNX";

    std::string device;
    Identification identification = Identification::Id;
    std::string knxOwner{kDefaultKnxOwner}; ///< identity of the KNX application program
    std::vector<DataPoint> dataPoints;
    std::vector<TimeCo> timeCos; ///< as listed; the CO of FixedId::kClock is added when it is not among them
    CoRange translationRange;
    std::uint16_t interfaceObject = 0; ///< id of the program's own interface object; 0 = none
    std::vector<Property> properties;
    std::vector<ExtendedProperty> extendedProperties;

    /// What stands before the name in every URN: "urn:oxn:dp:<device>:".
    std::string UrnPrefix() const;

    /// The owner of a data point of this project that names none: with a binding, unless the device stack
    /// holds the value, the KNX application program; else "".
    std::string DefaultOwner(const DataPoint& point) const;

    /// Describes the same device, down to every text; how the two files are written does not matter.
    bool operator==(const Project& other) const;

    /// Constant time. Null when there is none; the pointer lives as long as the project.
    const DataPoint* FindById(std::uint32_t id) const;
    const DataPoint* FindByName(std::string_view name) const;
    const DataPoint* FindByUrn(std::string_view urn) const;
    /// The data point that the CO belongs to; FixedId::kClock for every time CO.
    const DataPoint* FindByCo(std::uint16_t co) const;
    /// The type that the CO carries: its data point's, or what `timeCos` says. Nothing when no one has the
    /// CO.
    std::optional<KNXDPT> DptOfCo(std::uint16_t co) const;

    /// Builds the indexes of the Find operations; called by the loader once `dataPoints` is complete.
    void BuildIndex();

private:
    struct TextHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
    };

    std::unordered_map<std::uint32_t, std::uint32_t> m_byId; // to the place in dataPoints
    std::unordered_map<std::string, std::uint32_t, TextHash, std::equal_to<>> m_byName;
    struct BoundCo {
        std::uint32_t place = 0; // in dataPoints, + 1; 0 = none
        KNXDPT dpt;
    };
    std::vector<BoundCo> m_byCo; // by CO number
};

/// What came of loading: a project or at least one error.
struct LoadResult {
    std::shared_ptr<const Project> project; ///< null when the file was refused

    /// One sentence each, "file: place: cause". The place is line:column for a file that is not JSON, else a
    /// JSON pointer such as /dataPoints/3/dpt. In the order of the file; for tools that check a file.
    std::vector<std::string> errors;

    explicit operator bool() const { return project != nullptr; }

    /// The first error, with the number of further ones behind it; "" when there is none.
    std::string Error() const;
};

/// Reads and checks a project file. Never throws for what the file holds. Any thread.
LoadResult LoadProject(const std::string& path);

/// The same for a text; `fileName` is what messages call it.
LoadResult ParseProject(std::string_view text, const std::string& fileName);

/// The text of a project file that says what `project` says: ParseProject() makes an equal project of it, or
/// tells what is wrong with a project that nobody has checked. One data point a line, members that have
/// their default left out. The texts of the project must be UTF-8.
std::string WriteProject(const Project& project);

} // namespace ProjectFile
