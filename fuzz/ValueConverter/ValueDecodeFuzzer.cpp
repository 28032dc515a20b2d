// Octets from the bus: two octets main number, two sub number, one size for main number 0, then the value.
// What decodes has a text, and where that text may go to the bus, its octets have the same text again.

#include "Fuzz.h"

#include "KnxStack/GroupValue.h"
#include "Tav/TAVVALUE.h"
#include "ValueConverter/DatapointTypes.h"

#include <span>
#include <string>

namespace {

std::string Text(const TAVVALUE& value) {
    std::string text;
    value.Serialize(text, true);
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t kHead = 5;
    if (size < kHead)
        return 0;
    KNXDPT dpt;
    dpt.main = static_cast<std::uint16_t>(data[0] << 8 | data[1]);
    dpt.sub = static_cast<std::uint16_t>(data[2] << 8 | data[3]);
    dpt.sizeInBits = data[4];
    const std::span octets(data + kHead, size - kHead);
    const auto* type = Datapoint::Find({dpt.main, dpt.sub});
    const unsigned bits = type != nullptr && Datapoint::SizeInBits(*type) != 0 ? Datapoint::SizeInBits(*type)
                          : octets.size() == 1 && dpt.sizeInBits < 8
                              ? dpt.sizeInBits
                              : static_cast<unsigned>(octets.size()) * 8;
    TAVVALUE value;
    const auto decoded = Datapoint::Decode(dpt, {KnxStack::BinaryData(octets), bits}, value);
    Fuzz::Check(decoded.reason.empty() == bool(decoded));
    if (!decoded)
        return 0;
    TAVVALUE read;
    read.Deserialize(Text(value));
    KnxStack::GroupValue back;
    if (!Datapoint::Encode(dpt, read, back))
        return 0;
    const bool variesInSize =
        type != nullptr && Datapoint::SizeInBits(*type) == 0; // the text ends at its NUL
    Fuzz::Check(variesInSize || back.GetDefinedSize() == bits);
    TAVVALUE again;
    Fuzz::Check(bool(Datapoint::Decode(dpt, back, again)));
    Fuzz::Check(Text(again) == Text(value));
    return 0;
}
