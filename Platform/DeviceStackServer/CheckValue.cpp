#include "DeviceStackServer/CheckValue.h"

#include "KnxStack/GroupValue.h"
#include "Tav/TAVVALUE.h"
#include "ValueConverter/DatapointTypes.h"

namespace DeviceStackServer {
namespace {

/// True when the type has several spellings of one value, and going through the bus form loses nothing.
bool HasSpellings(const KNXDPT& dpt) {
    return dpt.main == 1 || dpt.main == 10 || dpt.main == 11 || dpt.main == 19;
}

} // namespace

std::string CheckValue(const KNXDPT& dpt, ValueSource source, std::string& text) {
    TAVVALUE value;
    value.Deserialize(text);
    KnxStack::GroupValue onBus;
    const auto encode = source == ValueSource::Device ? Datapoint::EncodeReceived : Datapoint::Encode;
    if (auto outcome = encode(dpt, value, onBus); !outcome)
        return std::move(outcome.reason);
    if (HasSpellings(dpt) && Datapoint::Decode(dpt, onBus, value))
        value.Serialize(text, true);
    return {};
}

} // namespace DeviceStackServer
