#include "KnxDevice/GroupTraffic.h"

#include "KnxStack/GroupValue.h"

namespace KnxDevice {

namespace {

constexpr Flag FlagThatTakes(GroupServiceKind kind) {
    switch (kind) {
    case GroupServiceKind::Read: return Flag::Read;
    case GroupServiceKind::Response: return Flag::Update;
    case GroupServiceKind::Write: break;
    }
    return Flag::Write;
}

bool FitsLength(const GroupObject& object, const GroupService& service) {
    if (service.kind == GroupServiceKind::Read)
        return true;
    if (object.TravelsInApci() || service.IsShort())
        return object.TravelsInApci() == service.IsShort();
    return object.fillsUp ? service.longValue.size() <= object.Bytes()
                          : service.longValue.size() == object.Bytes();
}

bool MayTransmit(const GroupObject& object, GroupServiceKind kind) {
    if (!object.flags.Has(Flag::Communication))
        return false;
    return object.flags.Has(Flag::Transmit) ||
           (kind == GroupServiceKind::Response && object.flags.Has(Flag::Read));
}

SendOutcome Check(const GroupObject& object, GroupServiceKind kind) {
    if (!object.Exists())
        return SendOutcome::NoSuchObject;
    if (!MayTransmit(object, kind))
        return SendOutcome::MayNotTransmit;
    return object.sendingConnection == 0 ? SendOutcome::NoAddress : SendOutcome::Composed;
}

constexpr std::uint8_t LowBits(unsigned bits) {
    return static_cast<std::uint8_t>((1u << bits) - 1u);
}

using ValueBytes = KnxFrames::FixedOctets<GroupObjectTable::kMaxValueBytes>;

ValueBytes FilledUp(const GroupObject& object, std::span<const std::uint8_t> bytes) {
    ValueBytes filled(bytes);
    while (filled.Size() < object.Bytes())
        filled.Append(0);
    return filled;
}

// What travels of a value, which may have a NUL more than there is room for: the object's end ends its text,
// too.
std::span<const std::uint8_t> TravellingBytes(const GroupObject& object, const KnxStack::GroupValue& value) {
    const auto bytes = value.GetRawData().Bytes();
    const bool hasSpareNul = object.fillsUp && bytes.size() == object.Bytes() + 1u && bytes.back() == 0;
    return hasSpareNul ? bytes.first(object.Bytes()) : bytes;
}

bool FitsSize(const GroupObject& object, const KnxStack::GroupValue& value) {
    const auto bytes = value.GetRawData().Bytes();
    if (object.fillsUp)
        return value.GetDefinedSize() == bytes.size() * 8 && !bytes.empty() &&
               TravellingBytes(object, value).size() <= object.Bytes();
    if (value.GetDefinedSize() != object.sizeInBits || bytes.size() != object.Bytes())
        return false;
    return object.sizeInBits >= 8 || (bytes.front() & ~LowBits(object.sizeInBits)) == 0;
}

KnxFrames::Tpdu TpduOf(const GroupObject& object, GroupServiceKind kind, const KnxStack::GroupValue& value) {
    const auto bytes = TravellingBytes(object, value);
    if (object.TravelsInApci())
        return KnxFrames::MakeGroupShortValue(kind, bytes.front());
    // The length was checked when the table was built.
    return *KnxFrames::MakeGroupLongValue(kind, FilledUp(object, bytes));
}

KnxFrames::LData TelegramOf(const GroupObjectTable& table, const GroupObject& object,
                            const KnxFrames::Tpdu& tpdu) {
    return KnxFrames::MakeGroupTelegram({}, table.SendingAddress(object), tpdu, object.priority);
}

} // namespace

Reception Receive(const GroupObjectTable& table, GroupAddress destination, const GroupService& service,
                  std::uint16_t sender) {
    Reception result;
    const auto associated = table.ObjectsAt(destination);
    result.listened = !associated.empty();
    const auto needed = Flags{}.With(Flag::Communication).With(FlagThatTakes(service.kind));
    for (const auto number : associated) {
        const auto& object = table.Object(number);
        if (sender != 0 && (number == sender || !object.ownTelegrams))
            continue;
        if ((object.flags.bits & needed.bits) != needed.bits)
            ++result.refusedByFlags;
        else if (!FitsLength(object, service))
            ++result.wrongLength;
        else
            result.objects.push_back(number);
    }
    return result;
}

KnxStack::GroupValue ValueFor(const GroupObject& object, const GroupService& service) {
    const auto bits = object.sizeInBits;
    if (bits >= 8)
        return {KnxStack::BinaryData(FilledUp(object, service.longValue).View()), bits};
    const auto byte = object.TravelsInApci() ? service.shortValue : service.longValue.front();
    return {KnxStack::BinaryData{static_cast<std::uint8_t>(byte & LowBits(bits))}, bits};
}

const char* ToString(SendOutcome outcome) {
    switch (outcome) {
    case SendOutcome::Composed: return "sent";
    case SendOutcome::NoSuchObject: return "there is no such group object";
    case SendOutcome::MayNotTransmit: return "its flags do not let it transmit";
    case SendOutcome::NoAddress: return "it has no group address";
    case SendOutcome::WrongSize: return "the value has another size";
    }
    return "";
}

SendOutcome ComposeValue(const GroupObjectTable& table, std::uint16_t number, GroupServiceKind kind,
                         const KnxStack::GroupValue& value, KnxFrames::LData& telegram) {
    const auto& object = table.Object(number);
    const auto outcome = Check(object, kind);
    if (outcome != SendOutcome::Composed)
        return outcome;
    if (!FitsSize(object, value))
        return SendOutcome::WrongSize;
    telegram = TelegramOf(table, object, TpduOf(object, kind, value));
    return outcome;
}

SendOutcome ComposeRead(const GroupObjectTable& table, std::uint16_t number, KnxFrames::LData& telegram) {
    const auto& object = table.Object(number);
    const auto outcome = Check(object, GroupServiceKind::Read);
    if (outcome == SendOutcome::Composed)
        telegram = TelegramOf(table, object, KnxFrames::MakeGroupRead());
    return outcome;
}

SendOutcome ComposeStartupRead(const GroupObjectTable& table, std::uint16_t number,
                               KnxFrames::LData& telegram) {
    const auto& object = table.Object(number);
    if (!object.Exists())
        return SendOutcome::NoSuchObject;
    if (!object.flags.Has(Flag::Communication))
        return SendOutcome::MayNotTransmit;
    if (object.sendingConnection == 0)
        return SendOutcome::NoAddress;
    telegram = TelegramOf(table, object, KnxFrames::MakeGroupRead());
    return SendOutcome::Composed;
}

} // namespace KnxDevice
