#include "Vesk/KnxValueConverter.h"

#include "KnxStack/GroupValue.h"
#include "Tav/TAVVALUE.h"
#include "ValueConverter/Layouts.h"

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

Status CheckSize(const Type* type, const KNXDPT& dpt, const KnxStack::GroupValue& groupValue, Reason reason) {
    const unsigned bits = groupValue.GetDefinedSize();
    const unsigned expected = type != nullptr ? type->layout->sizeInBits : dpt.sizeInBits;
    const bool variable = type != nullptr && expected == 0;
    const bool right =
        variable ? bits % 8 == 0 : bits == expected || (type == nullptr && bits % 256 == expected);
    if (!right || !IsSize(bits)) {
        return Refuse(Status::Malformed, reason, "{} bits is not the size of the type", bits);
    }
    const std::size_t octets = groupValue.GetRawData().GetSize();
    if (octets != (bits + 7) / 8) {
        return Refuse(Status::Malformed, reason, "{} octets do not hold {} bits", octets, bits);
    }
    return Status::Done;
}

Status FindRule(const KNXDPT& dpt, const Type*& type, Reason reason) {
    if (dpt.main == 0) {
        return IsSize(dpt.sizeInBits)
                   ? Status::Done
                   : Refuse(Status::UnknownType, reason, "a group value cannot have this size");
    }
    type = Find({dpt.main, dpt.sub});
    return type != nullptr ? Status::Done
                           : Refuse(Status::UnknownType, reason, "the datapoint type is not known");
}

Status FromBus(const KNXDPT& dpt, const KnxStack::GroupValue& groupValue, TAVVALUE& value, Reason reason) {
    const Type* type = nullptr;
    Status status = FindRule(dpt, type, reason);
    if (status == Status::Done) {
        status = CheckSize(type, dpt, groupValue, reason);
    }
    if (status == Status::Done) {
        const auto octets = groupValue.GetRawData().Bytes();
        status = type != nullptr ? type->layout->decode(*type, octets, value, reason)
                                 : DecodeBySize(groupValue.GetDefinedSize(), octets, value);
    }
    return status == Status::Done ? status : Name(status, dpt, reason);
}

Status ToOctets(const KNXDPT& dpt, const TAVVALUE& value, Octets& octets, unsigned& sizeInBits,
                Reason reason) {
    const Type* type = nullptr;
    const Status status = FindRule(dpt, type, reason);
    if (status != Status::Done) {
        return status;
    }
    if (value.IsNull()) {
        return Refuse(Status::Malformed, reason, "null has no form on the bus");
    }
    std::string buffer;
    const std::string_view text = value.TextView(buffer);
    if (type == nullptr) {
        sizeInBits = dpt.sizeInBits < 8 ? dpt.sizeInBits : 0;
        return EncodeBySize(dpt.sizeInBits, Trim(text), octets, reason);
    }
    const Layout& layout = *type->layout;
    sizeInBits = layout.sizeInBits;
    octets.resize((sizeInBits + 7) / 8);
    return layout.encode(*type, layout.keepsBlanks ? text : Trim(text), octets, reason);
}

Status ToBus(const KNXDPT& dpt, const TAVVALUE& value, KnxStack::GroupValue& groupValue, Reason reason) {
    Octets octets;
    unsigned sizeInBits = 0; // 0: as many octets as there are
    const Status status = ToOctets(dpt, value, octets, sizeInBits, reason);
    if (status != Status::Done) {
        return Name(status, dpt, reason);
    }
    if (sizeInBits == 0) {
        sizeInBits = static_cast<unsigned>(octets.size()) * 8;
    }
    groupValue = KnxStack::GroupValue(
        KnxStack::BinaryData(std::span<const std::uint8_t>(octets.data(), octets.size())), sizeInBits);
    return status;
}

} // namespace

Outcome Encode(const KNXDPT& dpt, const TAVVALUE& value, KnxStack::GroupValue& groupValue) {
    Outcome outcome;
    outcome.status = ToBus(dpt, value, groupValue, &outcome.reason);
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
    return Datapoint::ToBus(dpt, value, groupValue, nullptr) == Datapoint::Status::Done;
}

bool KnxValueConverter::FromKnxValue(KNXDPT& dpt, const KnxStack::GroupValue& groupValue,
                                     TAVVALUE& value) const {
    return Datapoint::FromBus(dpt, groupValue, value, nullptr) == Datapoint::Status::Done;
}

} // namespace Vesk
