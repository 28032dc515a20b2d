#include "ProjectFile/FixedDataPoints.h"

#include "ProjectFile/DatapointType.h"

#include <fmt/format.h>

namespace ProjectFile {

namespace {

struct Row {
    std::uint32_t id;
    std::string_view name;
    std::string_view dpt;
    Access access;
    std::string_view description;
};

constexpr Row kRows[] = {
    {FixedId::kDevice, "device", "28.001", Access::Read, "Name of the device"},
    {FixedId::kVersion, "version", "28.001", Access::Read, "Version of the device stack"},
    {FixedId::kReady, "ready", "1.002", Access::Read,
     "1 while the application program is configured and running"},
    {FixedId::kState, "state", "5.010", Access::Read, "Start-up state: 0 failed, 1 running, 2 in progress"},
    {FixedId::kRestart, "restart", "1.017", Access::Write, "Restarts the device"},
    {FixedId::kClock, "clock", "19.001", Access::ReadWrite, "Local date and time"},
    {FixedId::kClockDate, "clock.date", "11.001", Access::Read, "Local date"},
    {FixedId::kClockTime, "clock.time", "10.001", Access::Read, "Local time of day"},
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
        point.dpt = *ParseDatapointType(row.dpt);
        point.access = row.access;
        point.description = row.description;
    }
    return points;
}

} // namespace ProjectFile
