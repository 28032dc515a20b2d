// Addresses as people write them: what is read prints to something that reads the same.

#include "Fuzz.h"

#include "KnxFrames/Addresses.h"

#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace KnxFrames;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (const auto address = GroupAddress::Parse(text)) {
        for (const auto style :
             {GroupAddressStyle::ThreeLevel, GroupAddressStyle::TwoLevel, GroupAddressStyle::Free}) {
            const auto again = GroupAddress::Parse(address->ToString(style));
            Fuzz::Check(again && *again == *address);
        }
    } else {
        Fuzz::Check(address.Error().offset <= size);
    }
    if (const auto address = IndividualAddress::Parse(text)) {
        const auto again = IndividualAddress::Parse(address->ToString());
        Fuzz::Check(again && *again == *address);
    } else {
        Fuzz::Check(address.Error().offset <= size);
    }
    return 0;
}
