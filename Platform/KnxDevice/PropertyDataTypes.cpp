#include "KnxDevice/PropertyDataTypes.h"

namespace KnxDevice {

namespace {

constexpr std::uint8_t kVariableLength = 0x10; // PDT_VARIABLE_LENGTH
constexpr std::uint8_t kGeneric01 = 0x11;      // PDT_GENERIC_01 to PDT_GENERIC_20: as many bytes
constexpr std::uint8_t kGeneric20 = 0x24;
constexpr std::uint8_t kUtf8 = 0x2F; // PDT_UTF-8

struct FixedSize {
    std::uint8_t dataType;
    std::uint8_t bytes;
};

constexpr FixedSize kFixedSizes[] = {
    {0x00, 1},  // PDT_CONTROL
    {0x01, 1},  // PDT_CHAR
    {0x02, 1},  // PDT_UNSIGNED_CHAR
    {0x03, 2},  // PDT_INT
    {0x04, 2},  // PDT_UNSIGNED_INT
    {0x05, 2},  // PDT_KNX_FLOAT
    {0x06, 3},  // PDT_DATE
    {0x07, 3},  // PDT_TIME
    {0x08, 4},  // PDT_LONG
    {0x09, 4},  // PDT_UNSIGNED_LONG
    {0x0A, 4},  // PDT_FLOAT
    {0x0B, 8},  // PDT_DOUBLE
    {0x0C, 10}, // PDT_CHAR_BLOCK
    {0x0D, 3},  // PDT_POLL_GROUP_SETTINGS
    {0x0E, 5},  // PDT_SHORT_CHAR_BLOCK
    {0x0F, 8},  // PDT_DATE_TIME
    {0x30, 2},  // PDT_VERSION
    {0x31, 6},  // PDT_ALARM_INFO
    {0x32, 1},  // PDT_BINARY_INFORMATION
    {0x33, 1},  // PDT_BITSET8
    {0x34, 2},  // PDT_BITSET16
    {0x35, 1},  // PDT_ENUM8
    {0x36, 1},  // PDT_SCALING
};

} // namespace

PropertyElementSize SizeOfPropertyElement(std::uint8_t dataType) {
    if (dataType >= kGeneric01 && dataType <= kGeneric20) {
        const auto bytes = static_cast<std::uint8_t>(dataType - kGeneric01 + 1);
        return {bytes, bytes};
    }
    if (dataType == kVariableLength || dataType == kUtf8)
        return {1, kLongestVariableElement};
    for (const auto& known : kFixedSizes)
        if (known.dataType == dataType)
            return {known.bytes, known.bytes};
    return {};
}

} // namespace KnxDevice
