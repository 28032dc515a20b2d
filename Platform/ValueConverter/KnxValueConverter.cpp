#include "Vesk/KnxValueConverter.h"

#include "KnxStack/GroupValue.h"
#include "Tav/TAVVALUE.h"
#include "ValueConverter/Layouts.h"
#include "ValueConverter/TypeTable.h"

namespace Datapoint {

namespace {

// A type's number, or the size where there is none, in front of the words of a refusal.
[[gnu::cold, gnu::noinline]] Status Name(Status status, const KNXDPT& dpt, Reason reason) {
    if (reason != nullptr) {
        const std::string name =
            dpt.main == 0 ? fmt::format("{} bits", dpt.sizeInBits) : ToString(Number{dpt.main, dpt.sub});
        *reason = fmt::format("{}: {}", name, *reason);
    }
    return status;
}

bool IsSize(unsigned bits) {
    return bits != 0 && (bits < 8 || bits % 8 == 0);
}

// A layout of variable length takes any whole octets.
bool Fits(const Layout& layout, unsigned bits) {
    return bits == layout.sizeInBits || (layout.sizeInBits == 0 && bits % 8 == 0);
}

Status RefuseType(Reason reason) {
    return Refuse(Status::UnknownType, reason, "the datapoint type is not known");
}
Status RefuseRecordedSize(Reason reason) {
    return Refuse(Status::UnknownType, reason, "a group value cannot have this size");
}
Status RefuseSize(unsigned bits, Reason reason) {
    return Refuse(Status::Malformed, reason, "{} bits is not the size of the type", bits);
}

Status OctetsToValue(const KNXDPT& dpt, unsigned bits, std::span<const std::uint8_t> octets, TAVVALUE& value,
                     Reason reason) {
    if (dpt.main == 0) {
        if (!IsSize(dpt.sizeInBits)) {
            return RefuseRecordedSize(reason);
        }
        return IsSize(bits) && bits % 256 == dpt.sizeInBits ? DecodeBySize(bits, octets, value)
                                                            : RefuseSize(bits, reason);
    }
    const Type* type = FindRule(dpt);
    if (type == nullptr) {
        return RefuseType(reason);
    }
    return Fits(*type->layout, bits) ? type->layout->decode(*type, octets, value, reason)
                                     : RefuseSize(bits, reason);
}

Status FromBus(const KNXDPT& dpt, const KnxStack::GroupValue& groupValue, TAVVALUE& value, Reason reason) {
    const unsigned bits = groupValue.GetDefinedSize();
    const auto octets = groupValue.GetRawData().Bytes();
    const Status status = octets.size() == (bits + 7) / 8 && !octets.empty()
                              ? OctetsToValue(dpt, bits, octets, value, reason)
                              : Refuse(Status::Malformed, reason, "{} octets do not hold a value of {} bits",
                                       octets.size(), bits);
    return status == Status::Done ? status : Name(status, dpt, reason);
}

// Which texts a type takes.
enum class Texts { OfTheType, Received };

// `sizeInBits` 0: as many octets as there are.
template <Texts Which>
Status ValueToOctets(const KNXDPT& dpt, const TAVVALUE& value, Octets& octets, unsigned& sizeInBits,
                     Reason reason) {
    std::string buffer;
    const std::string_view text = value.TextView(buffer);
    if (dpt.main == 0) {
        if (!IsSize(dpt.sizeInBits)) {
            return RefuseRecordedSize(reason);
        }
        sizeInBits = dpt.sizeInBits < 8 ? dpt.sizeInBits : 0;
        return EncodeBySize(dpt.sizeInBits, Trim(text), octets, reason);
    }
    const Type* type = FindRule(dpt);
    if (type == nullptr) {
        return RefuseType(reason);
    }
    const Layout& layout = *type->layout;
    sizeInBits = layout.sizeInBits;
    octets.Resize((sizeInBits + 7) / 8);
    const bool received = Which == Texts::Received && layout.encodeReceived != nullptr;
    const auto encode = received ? layout.encodeReceived : layout.encode;
    return encode(*type, layout.keepsBlanks ? text : Trim(text), octets, reason);
}

template <Texts Which>
Status ToBus(const KNXDPT& dpt, const TAVVALUE& value, KnxStack::GroupValue& groupValue, Reason reason) {
    Octets octets;
    unsigned sizeInBits = 0;
    const Status status = value.IsNull() ? Refuse(Status::Malformed, reason, "null has no form on the bus")
                                         : ValueToOctets<Which>(dpt, value, octets, sizeInBits, reason);
    if (status != Status::Done) {
        return Name(status, dpt, reason);
    }
    if (sizeInBits == 0) {
        sizeInBits = static_cast<unsigned>(octets.Size()) * 8;
    }
    groupValue = KnxStack::GroupValue(
        KnxStack::BinaryData(std::span<const std::uint8_t>(octets.Data(), octets.Size())), sizeInBits);
    return status;
}

} // namespace

Outcome Encode(const KNXDPT& dpt, const TAVVALUE& value, KnxStack::GroupValue& groupValue) {
    Outcome outcome;
    outcome.status = ToBus<Texts::OfTheType>(dpt, value, groupValue, &outcome.reason);
    return outcome;
}

Outcome EncodeReceived(const KNXDPT& dpt, const TAVVALUE& value, KnxStack::GroupValue& groupValue) {
    Outcome outcome;
    outcome.status = ToBus<Texts::Received>(dpt, value, groupValue, &outcome.reason);
    return outcome;
}

Outcome Decode(const KNXDPT& dpt, const KnxStack::GroupValue& groupValue, TAVVALUE& value) {
    Outcome outcome;
    outcome.status = FromBus(dpt, groupValue, value, &outcome.reason);
    return outcome;
}

} // namespace Datapoint

namespace Vesk {

bool KnxValueConverter::ToKnxValue(KNXDPT& dpt, const TAVVALUE& value,
                                   KnxStack::GroupValue& groupValue) const {
    return Datapoint::ToBus<Datapoint::Texts::OfTheType>(dpt, value, groupValue, nullptr) ==
           Datapoint::Status::Done;
}

bool KnxValueConverter::FromKnxValue(KNXDPT& dpt, const KnxStack::GroupValue& groupValue,
                                     TAVVALUE& value) const {
    return Datapoint::FromBus(dpt, groupValue, value, nullptr) == Datapoint::Status::Done;
}

} // namespace Vesk
