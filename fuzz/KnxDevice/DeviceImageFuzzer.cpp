// Device images: octets are refused, or are a state that is written as the same octets and that a device can
// take over. Each input is read as it is, and once more with the checksum made right.

#include "Fuzz.h"

#include "KnxDevice/DeviceImage.h"

#include <boost/crc.hpp>

#include <algorithm>

namespace {

using Bytes = std::vector<std::uint8_t>;

void CorrectChecksum(Bytes& image) {
    constexpr std::size_t kSize = 4;
    if (image.size() < kSize)
        return;
    boost::crc_32_type crc;
    crc.process_bytes(image.data(), image.size() - kSize);
    for (std::size_t octet = 0; octet < kSize; ++octet)
        image[image.size() - 1 - octet] = static_cast<std::uint8_t>(crc.checksum() >> 8 * octet);
}

void Read(const Bytes& image) {
    using namespace KnxDevice;
    std::optional<DeviceState> state;
    try {
        state = ReadDeviceImage(image);
    } catch (const ImageError&) {
        return;
    }
    Fuzz::Check(WriteDeviceImage(*state) == image);
    InterfaceObjects objects;
    Device device({}, objects);
    device.Restore(*state);
    Fuzz::Check(objects.Count() <= InterfaceObjects::kMostObjects);
    // Objects and properties come back in the device's own order; the image has as much in it all the same.
    const auto again = WriteDeviceImage(device.State());
    Fuzz::Check(again.size() == image.size());
    Fuzz::Check(WriteDeviceImage(ReadDeviceImage(again)) == again);
    for (const auto& object : device.LoadedGroupObjects())
        Fuzz::Check(object.number != 0 && object.sizeInBits != 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes image(data, data + size);
    Read(image);
    CorrectChecksum(image);
    Read(image);
    return 0;
}
