// What a device keeps over a restart, as one file.
#pragma once

#include "KnxDevice/Device.h"

#include <cstdint>
#include <stdexcept>
#include <vector>

namespace KnxDevice {

/// An image that cannot be used; what() is one phrase.
class ImageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The octets of an image. docs/formats/device-image.md describes them.
std::vector<std::uint8_t> WriteDeviceImage(const DeviceState& state);

/// The reverse. Throws ImageError when the octets are no image, of another version, cut off or damaged, or
/// hold what no device can have.
DeviceState ReadDeviceImage(Octets image);

} // namespace KnxDevice
