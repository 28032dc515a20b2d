// The device's own data points: ids that mean the same in every project.
#pragma once

#include <cstdint>

constexpr std::uint32_t kReadyDataPoint = 1002;
constexpr std::uint32_t kStateDataPoint = 1003;
constexpr std::uint32_t kRestartDataPoint = 1004;
constexpr std::uint32_t kClockDataPoint = 1005; ///< date and time; the next two are views of the same clock

/// Whether `id` is one of the clock's data points.
constexpr bool IsTimeDataPoint(std::uint32_t id) {
    return id >= kClockDataPoint && id <= kClockDataPoint + 2;
}
