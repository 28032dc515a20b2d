#include "ProjectFile/FixedDataPoints.h"

#include "ValueConverter/DatapointTypes.h"

#include <fmt/format.h>

namespace ProjectFile {

namespace {

struct Row {
    std::uint32_t id;
    std::string_view name;
    Datapoint::Number type;
    Access access;
    std::string_view description;
};

constexpr Row kRows[] = {
    {FixedId::kDevice, "device", {28, 1}, Access::Read, "Name of the device"},
    {FixedId::kVersion, "version", {28, 1}, Access::Read, "Version of the device stack"},
    {FixedId::kReady,
     "ready",
     {1, 2},
     Access::Read,
     "1 while the application program is configured and running"},
    {FixedId::kState, "state", {5, 10}, Access::Read, "Start-up state: 0 failed, 1 running, 2 in progress"},
    {FixedId::kRestart, "restart", {1, 17}, Access::Write, "Restarts the device"},
    {FixedId::kClock, "clock", {19, 1}, Access::ReadWrite, "Local date and time"},
    {FixedId::kClockDate, "clock.date", {11, 1}, Access::Read, "Local date"},
    {FixedId::kClockTime, "clock.time", {10, 1}, Access::Read, "Local time of day"},
};

} // namespace

std::vector<DataPoint> FixedDataPoints(std::string_view device) {
    std::vector<DataPoint> points;
    for (const Row& row : kRows) {
        DataPoint& point = points.emplace_back();
        point.id = row.id;
        point.name = row.name;
        point.urn = fmt::format("urn:oxn:dp:{}", device);
        if (row.id != FixedId::kDevice) {
            point.urn += fmt::format(":{}", row.name);
        }
        point.dpt = Datapoint::ToKnxDpt(row.type);
        point.dptText = Datapoint::ToString(row.type);
        point.access = row.access;
        point.description = row.description;
    }
    return points;
}

} // namespace ProjectFile
