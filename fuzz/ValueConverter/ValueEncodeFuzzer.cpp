// Text for the bus: two octets main number, two sub number, one size for main number 0, then the native text.
// What encodes decodes, never to null, and its text gives the same octets.

#include "Fuzz.h"

#include "KnxStack/GroupValue.h"
#include "Tav/TAVVALUE.h"
#include "ValueConverter/DatapointTypes.h"

#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t kHead = 5;
    if (size < kHead)
        return 0;
    KNXDPT dpt;
    dpt.main = static_cast<std::uint16_t>(data[0] << 8 | data[1]);
    dpt.sub = static_cast<std::uint16_t>(data[2] << 8 | data[3]);
    dpt.sizeInBits = data[4];
    TAVVALUE value;
    value.Deserialize(std::string_view(reinterpret_cast<const char*>(data) + kHead, size - kHead));
    KnxStack::GroupValue groupValue;
    const auto encoded = Datapoint::Encode(dpt, value, groupValue);
    Fuzz::Check(encoded.reason.empty() == bool(encoded));
    if (!encoded) {
        Fuzz::Check(groupValue == KnxStack::GroupValue());
        return 0;
    }
    TAVVALUE decoded;
    Fuzz::Check(bool(Datapoint::Decode(dpt, groupValue, decoded)));
    Fuzz::Check(!decoded.IsNull());
    std::string text;
    decoded.Serialize(text, true);
    TAVVALUE read;
    read.Deserialize(text);
    KnxStack::GroupValue again;
    Fuzz::Check(bool(Datapoint::Encode(dpt, read, again)));
    Fuzz::Check(again == groupValue);
    return 0;
}
