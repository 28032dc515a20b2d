// What a frame says about a server.

#include "KnxIp/FrameCursor.h"
#include "KnxIp/FrameLayout.h"

#include <algorithm>

namespace KnxIp {
namespace {

using namespace Layout;

template <std::size_t Size>
std::array<std::uint8_t, Size> TakeArray(FrameCursor& cursor) {
    std::array<std::uint8_t, Size> result{};
    const Octets taken = cursor.Take(Size);
    std::copy(taken.begin(), taken.end(), result.begin());
    return result;
}

/// ISO 8859-1 up to the first zero, as UTF-8.
std::string ToUtf8(Octets latin1) {
    std::string text;
    for (const std::uint8_t character : latin1) {
        if (character == 0)
            break;
        if (character < 0x80) {
            text += static_cast<char>(character);
        } else {
            text += static_cast<char>(0xC0 | character >> 6);
            text += static_cast<char>(0x80 | (character & 0x3F));
        }
    }
    return text;
}

DeviceInformation TakeDeviceInformation(FrameCursor& block) {
    DeviceInformation device;
    device.medium = block.Take8();
    device.programmingMode = (block.Take8() & kProgrammingMode) != 0;
    device.address = KnxFrames::IndividualAddress(block.Take16());
    device.projectInstallation = block.Take16();
    device.serialNumber = TakeArray<6>(block);
    device.multicast = block.Take32();
    device.mac = TakeArray<6>(block);
    device.name = ToUtf8(block.Take(kNameSize));
    return device;
}

void TakeDeviceBlock(FrameCursor& cursor, FrameCursor& block, DeviceDescription& description) {
    if (block.Left() != kDeviceInformationSize - 2U)
        cursor.Fail("the device information is not 54 octets long");
    else
        description.device = TakeDeviceInformation(block);
}

void TakeFamiliesBlock(FrameCursor& cursor, FrameCursor& block, DeviceDescription& description) {
    if (block.Left() % 2 != 0)
        cursor.Fail("the list of service families has half an entry");
    while (block.Left() >= 2) {
        const std::uint8_t family = block.Take8();
        description.families.push_back({family, block.Take8()});
    }
}

void TakeExtendedBlock(FrameCursor& cursor, FrameCursor& block, DeviceDescription& description) {
    if (block.Left() != kExtendedDeviceInformationSize - 2U) {
        cursor.Fail("the extended device information is not 8 octets long");
        return;
    }
    ExtendedDeviceInformation& extended = description.extended.emplace();
    extended.status = block.Take8();
    block.Take8();
    extended.apduLength = block.Take16();
    extended.deviceDescriptor = block.Take16();
}

void TakeTunnellingBlock(FrameCursor& cursor, FrameCursor& block, DeviceDescription& description) {
    if (block.Left() < 2 || block.Left() % kTunnellingSlotSize != kTunnellingInformationSize - 2U) {
        cursor.Fail("the tunnelling information has half a slot");
        return;
    }
    TunnellingInformation& tunnelling = description.tunnelling.emplace();
    tunnelling.apduLength = block.Take16();
    while (block.Left() > 0) {
        const KnxFrames::IndividualAddress address(block.Take16());
        tunnelling.slots.push_back({address, block.Take16()});
    }
}

} // namespace

DeviceDescription TakeDescription(FrameCursor& cursor) {
    DeviceDescription description;
    bool hasDevice = false;
    while (cursor.Left() > 0) {
        FrameCursor block = cursor.TakeBlock(2, 0xFF, "a description block is shorter than its header");
        switch (static_cast<DescriptionType>(block.Take8())) {
        case DescriptionType::DeviceInformation:
            TakeDeviceBlock(cursor, block, description);
            hasDevice = true;
            break;
        case DescriptionType::ServiceFamilies: TakeFamiliesBlock(cursor, block, description); break;
        case DescriptionType::TunnellingInformation: TakeTunnellingBlock(cursor, block, description); break;
        case DescriptionType::ExtendedDeviceInformation: TakeExtendedBlock(cursor, block, description); break;
        }
    }
    if (!hasDevice)
        cursor.Fail("the device information is missing");
    return description;
}

} // namespace KnxIp
