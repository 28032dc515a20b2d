// Property and memory services of Management.
#include "KnxDevice/Management.h"

#include <array>

namespace KnxDevice {

namespace {

// Number of elements in the upper four bits, the first one's number in the lower twelve.
ElementRange RangeOf(std::uint8_t high, std::uint8_t low) {
    return {static_cast<std::uint16_t>((high & 0x0F) << 8 | low), static_cast<std::uint16_t>(high >> 4)};
}

std::uint16_t Number16(Octets octets) {
    return static_cast<std::uint16_t>(octets[0] << 8 | octets[1]);
}

std::uint32_t Number24(Octets octets) {
    return std::uint32_t{octets[0]} << 16 | std::uint32_t{octets[1]} << 8 | octets[2];
}

constexpr std::uint8_t kWriteEnabled = 0x80;
constexpr std::uint8_t kDataTypeBits = 0x3F;

// How many octets of a property's value an answer has room for.
constexpr std::size_t kPropertyHead = 4;
constexpr std::size_t kExtPropertyHead = 8;
constexpr std::size_t kMostApduData = KnxFrames::Tpdu::kCapacity - 2;

bool Fits(const std::optional<std::vector<std::uint8_t>>& value, std::size_t head) {
    return value && value->size() <= kMostApduData - head;
}

// Return codes of the extended services (KNX Standard 3/7/1).
enum ReturnCode : std::uint8_t {
    kSuccess = 0x00,
    kMemoryError = 0xF1,       // some of the memory cannot be accessed
    kInvalidCommand = 0xF2,    // not supported
    kImpossibleCommand = 0xF3, // something has to come before it
    kTooLong = 0xF4,           // for an APDU
    kDataVoid = 0xF8,          // the service is supported, but not with such data
    kNotNow = 0xF9,            // it could be written at another time
    kReadOnly = 0xFB,          // nobody may write it
    kAccessDenied = 0xFC,      // this one may not
    kAddressVoid = 0xFD,       // there is no such place
    kTypeConflict = 0xFE,      // the place has another type or length
    kUnspecified = 0xFF,
};

ReturnCode ReturnCodeOf(WriteResult result) {
    switch (result) {
    case WriteResult::Done: return kSuccess;
    case WriteResult::NoSuchProperty:
    case WriteResult::NoSuchElement:
    case WriteResult::NoSuchMemory: return kAddressVoid;
    case WriteResult::ReadOnly: return kReadOnly;
    case WriteResult::Denied: return kAccessDenied;
    case WriteResult::WrongLength: return kTypeConflict;
    case WriteResult::MemoryEnds:
    case WriteResult::NoRoom: return kMemoryError;
    case WriteResult::NotLoading: return kNotNow;
    case WriteResult::UnknownEvent: return kInvalidCommand;
    case WriteResult::WrongState: return kImpossibleCommand;
    case WriteResult::InvalidLoad: return kDataVoid;
    }
    return kUnspecified;
}

} // namespace

bool Management::DispatchProperty(const Apdu& apdu) {
    switch (apdu.service) {
    case Service::PropertyValueRead: ReadPropertyValue(apdu); return true;
    case Service::PropertyValueWrite: WritePropertyValue(apdu); return true;
    case Service::PropertyDescriptionRead: ReadPropertyDescription(apdu); return true;
    case Service::PropertyExtValueRead: ReadExtPropertyValue(apdu); return true;
    case Service::PropertyExtValueWriteCon: WriteExtPropertyValue(apdu, true); return true;
    case Service::PropertyExtValueWriteUnCon: WriteExtPropertyValue(apdu, false); return true;
    case Service::PropertyExtDescriptionRead: ReadExtPropertyDescription(apdu); return true;
    case Service::FunctionPropertyCommand:
    case Service::FunctionPropertyStateRead: AnswerFunctionProperty(apdu); return true;
    case Service::FunctionPropertyExtCommand:
    case Service::FunctionPropertyExtStateRead: AnswerExtFunctionProperty(apdu); return true;
    default: return false;
    }
}

bool Management::DispatchMemory(const Apdu& apdu) {
    switch (apdu.service) {
    case Service::MemoryRead: ReadMemory(apdu); return true;
    case Service::MemoryWrite: WriteMemory(apdu); return true;
    case Service::UserMemoryRead: ReadUserMemory(apdu); return true;
    case Service::UserMemoryWrite: WriteUserMemory(apdu); return true;
    case Service::MemoryExtendedRead: ReadExtendedMemory(apdu); return true;
    case Service::MemoryExtendedWrite: WriteExtendedMemory(apdu); return true;
    default: return false;
    }
}

// Object index, property, count and start. What is refused is answered with a count of 0, but a load event
// with the load state.

void Management::ReadPropertyValue(const Apdu& apdu) {
    if (apdu.data.size() != kPropertyHead) {
        Refuse(apdu, "its length is wrong");
        return;
    }
    std::array<std::uint8_t, kPropertyHead> head{apdu.data[0], apdu.data[1], apdu.data[2], apdu.data[3]};
    const auto value = m_properties.Read(head[0], head[1], RangeOf(head[2], head[3]), Level());
    if (Fits(value, kPropertyHead)) {
        Answer(Service::PropertyValueResponse, 0, head, *value);
        return;
    }
    head[2] &= 0x0F;
    Answer(Service::PropertyValueResponse, 0, head);
}

void Management::WritePropertyValue(const Apdu& apdu) {
    if (apdu.data.size() <= kPropertyHead) {
        Refuse(apdu, "its length is wrong");
        return;
    }
    std::array<std::uint8_t, kPropertyHead> head{apdu.data[0], apdu.data[1], apdu.data[2], apdu.data[3]};
    const auto range = RangeOf(head[2], head[3]);
    const auto result =
        Report(apdu, m_properties.Write(head[0], head[1], range, apdu.data.subspan(kPropertyHead), Level()));
    if (result != WriteResult::Done && !IsJudgedByLoadState(result)) {
        head[2] &= 0x0F;
        Answer(Service::PropertyValueResponse, 0, head);
        return;
    }
    // What the property has become, which is not always what was written.
    const auto value = m_properties.Read(head[0], head[1], range, Level());
    Answer(Service::PropertyValueResponse, 0, head, value ? Octets(*value) : Octets());
}

void Management::ReadPropertyDescription(const Apdu& apdu) {
    if (apdu.data.size() != 3) {
        Refuse(apdu, "its length is wrong");
        return;
    }
    const auto place = m_properties.Describe(apdu.data[0], apdu.data[1], apdu.data[2]);
    std::array<std::uint8_t, 7> answer{apdu.data[0], apdu.data[1], apdu.data[2]};
    if (place) {
        const auto& property = place->description;
        answer = {apdu.data[0],
                  static_cast<std::uint8_t>(property.id),
                  place->index,
                  static_cast<std::uint8_t>((property.writeEnabled ? kWriteEnabled : 0) |
                                            (property.dataType & kDataTypeBits)),
                  static_cast<std::uint8_t>(property.mostElements >> 8 & 0x0F),
                  static_cast<std::uint8_t>(property.mostElements),
                  static_cast<std::uint8_t>(property.readLevel << 4 | property.writeLevel)};
    }
    Answer(Service::PropertyDescriptionResponse, 0, answer);
}

// Object type, instance and property of 16, 12 and 12 bits, one octet of count, two of start.

namespace {

struct ExtPlace {
    std::uint16_t type = 0;
    std::uint16_t instance = 0;
    std::uint16_t property = 0;
};

ExtPlace ExtPlaceOf(Octets octets) {
    return {Number16(octets), static_cast<std::uint16_t>(octets[2] << 4 | octets[3] >> 4),
            static_cast<std::uint16_t>((octets[3] & 0x0F) << 8 | octets[4])};
}

ElementRange ExtRangeOf(Octets octets) {
    return {Number16(octets.subspan(6)), octets[5]};
}

} // namespace

void Management::ReadExtPropertyValue(const Apdu& apdu) {
    if (apdu.data.size() != kExtPropertyHead) {
        Refuse(apdu, "its length is wrong");
        return;
    }
    std::array<std::uint8_t, kExtPropertyHead> head{};
    std::copy(apdu.data.begin(), apdu.data.end(), head.begin());
    const auto place = ExtPlaceOf(apdu.data);
    const auto object = m_properties.FindObject(place.type, place.instance);
    const auto value =
        object ? m_properties.Read(*object, place.property, ExtRangeOf(apdu.data), Level()) : std::nullopt;
    if (Fits(value, kExtPropertyHead)) {
        Answer(Service::PropertyExtValueResponse, 0, head, *value);
        return;
    }
    head[5] = 0; // no element, and why
    Answer(Service::PropertyExtValueResponse, 0, head,
           std::array<std::uint8_t, 1>{value ? kTooLong : kAddressVoid});
}

void Management::WriteExtPropertyValue(const Apdu& apdu, bool confirmed) {
    if (apdu.data.size() <= kExtPropertyHead) {
        Refuse(apdu, "its length is wrong");
        return;
    }
    const auto place = ExtPlaceOf(apdu.data);
    const auto object = m_properties.FindObject(place.type, place.instance);
    const auto result =
        Report(apdu, object ? m_properties.Write(*object, place.property, ExtRangeOf(apdu.data),
                                                 apdu.data.subspan(kExtPropertyHead), Level())
                            : WriteResult::NoSuchProperty);
    if (confirmed)
        Answer(Service::PropertyExtValueWriteConRes, 0, apdu.data.first(kExtPropertyHead),
               std::array<std::uint8_t, 1>{ReturnCodeOf(result)});
}

void Management::ReadExtPropertyDescription(const Apdu& apdu) {
    // Behind the place, four bits of description type, which is 0, and twelve of the property's index.
    constexpr std::size_t kSize = 7;
    if (apdu.data.size() != kSize) {
        Refuse(apdu, "its length is wrong");
        return;
    }
    auto wanted = ExtPlaceOf(apdu.data);
    std::uint16_t index = Number16(apdu.data.subspan(5)) & 0x0FFF;
    const auto object = m_properties.FindObject(wanted.type, wanted.instance);
    const auto place = object && index <= 0xFF
                           ? m_properties.Describe(*object, wanted.property, static_cast<std::uint8_t>(index))
                           : std::nullopt;
    Tpdu answer = KnxFrames::MakeApdu(Service::PropertyExtDescriptionResponse, 0, apdu.data.first(3));
    const PropertyDescription none{.id = wanted.property, .mostElements = 0, .readLevel = 0, .writeLevel = 0};
    const auto& property = place ? place->description : none;
    index = place ? place->index : index;
    answer.Append(static_cast<std::uint8_t>((apdu.data[3] & 0xF0) | (property.id >> 8 & 0x0F)));
    answer.Append(static_cast<std::uint8_t>(property.id));
    answer.Append16(index);
    answer.Append16(0); // datapoint type: not named
    answer.Append16(0);
    answer.Append(static_cast<std::uint8_t>((property.writeEnabled ? kWriteEnabled : 0) |
                                            (property.dataType & kDataTypeBits)));
    answer.Append16(property.mostElements);
    answer.Append(static_cast<std::uint8_t>(property.readLevel << 4 | property.writeLevel));
    Answer(answer);
}

/// No property here is a function: the answer names the property and has no return code.
void Management::AnswerFunctionProperty(const Apdu& apdu) {
    if (apdu.data.size() < 2)
        Refuse(apdu, "its length is wrong");
    else
        Answer(Service::FunctionPropertyStateResponse, 0, apdu.data.first(2));
}

/// Likewise, but the answer says why. A load control can be called: with the event, and to ask for the state,
/// which is what it answers.
void Management::AnswerExtFunctionProperty(const Apdu& apdu) {
    constexpr std::size_t kHead = 5;
    if (apdu.data.size() < kHead) {
        Refuse(apdu, "its length is wrong");
        return;
    }
    const auto place = ExtPlaceOf(apdu.data);
    const auto object = m_properties.FindObject(place.type, place.instance);
    const auto known =
        object && place.property != 0 ? m_properties.Describe(*object, place.property, 0) : std::nullopt;
    auto code = known ? kTypeConflict : kAddressVoid;
    if (known && known->description.dataType == kControl) {
        const bool isCommand = apdu.service == Service::FunctionPropertyExtCommand;
        code = ReturnCodeOf(isCommand ? Report(apdu, m_properties.Write(*object, place.property, {},
                                                                        apdu.data.subspan(kHead), Level()))
                                      : WriteResult::Done);
    }
    Tpdu answer = KnxFrames::MakeApdu(Service::FunctionPropertyExtStateResponse, 0, apdu.data.first(kHead));
    answer.Append(static_cast<std::uint8_t>(code));
    if (code == kSuccess)
        if (const auto state = m_properties.Read(*object, place.property, {}, Level()))
            answer.Append(Octets(*state));
    Answer(answer);
}

// Memory. The number of octets stands in the low bits of the control information; 0 of them answer a place
// that is not there.

/// The end of each service that writes memory.
WriteResult Management::WriteOctets(const Apdu& apdu, std::uint32_t address, Octets octets) {
    return Report(apdu, MayWriteMemory() ? m_device.WriteMemory(address, octets) : WriteResult::Denied);
}

void Management::ReadMemory(const Apdu& apdu) {
    if (apdu.data.size() != 2 || apdu.number == 0) {
        Refuse(apdu, "its length is wrong");
        return;
    }
    const auto octets = m_device.ReadMemory(Number16(apdu.data), apdu.number);
    Answer(Service::MemoryResponse, octets ? apdu.number : std::uint8_t{0}, apdu.data,
           octets ? Octets(*octets) : Octets());
}

void Management::WriteMemory(const Apdu& apdu) {
    if (apdu.number == 0 || apdu.data.size() != 2u + apdu.number) {
        Refuse(apdu, "its length is wrong");
        return;
    }
    const auto address = Number16(apdu.data);
    const bool done = WriteOctets(apdu, address, apdu.data.subspan(2)) == WriteResult::Done;
    if (m_device.VerifiesMemoryWrites()) {
        const auto octets = done ? m_device.ReadMemory(address, apdu.number) : std::nullopt;
        Answer(Service::MemoryResponse, octets ? apdu.number : std::uint8_t{0}, apdu.data.first(2),
               octets ? Octets(*octets) : Octets());
    }
}

// User memory: four bits of address and four of the number of octets, then 16 bits of address.

void Management::ReadUserMemory(const Apdu& apdu) {
    if (apdu.data.size() != 3) {
        Refuse(apdu, "its length is wrong");
        return;
    }
    const std::size_t count = apdu.data[0] & 0x0F;
    const auto address = std::uint32_t{apdu.data[0]} >> 4 << 16 | Number16(apdu.data.subspan(1));
    const auto octets = count == 0 ? std::nullopt : m_device.ReadMemory(address, count);
    const std::array<std::uint8_t, 3> head{
        static_cast<std::uint8_t>((apdu.data[0] & 0xF0) | (octets ? count : 0)), apdu.data[1], apdu.data[2]};
    Answer(Service::UserMemoryResponse, 0, head, octets ? Octets(*octets) : Octets());
}

void Management::WriteUserMemory(const Apdu& apdu) {
    if (apdu.data.size() < 4 || apdu.data.size() != 3u + (apdu.data[0] & 0x0F)) {
        Refuse(apdu, "its length is wrong");
        return;
    }
    const auto address = std::uint32_t{apdu.data[0]} >> 4 << 16 | Number16(apdu.data.subspan(1));
    const std::size_t count = apdu.data.size() - 3;
    const bool done = WriteOctets(apdu, address, apdu.data.subspan(3)) == WriteResult::Done;
    if (m_device.VerifiesMemoryWrites()) {
        const auto octets = done ? m_device.ReadMemory(address, count) : std::nullopt;
        const std::array<std::uint8_t, 3> head{
            static_cast<std::uint8_t>((apdu.data[0] & 0xF0) | (octets ? count : 0)), apdu.data[1],
            apdu.data[2]};
        Answer(Service::UserMemoryResponse, 0, head, octets ? Octets(*octets) : Octets());
    }
}

// Extended memory: count, three octets of address. Every request is answered, with a return code.

namespace {

constexpr std::size_t kExtMemoryHead = 4;
constexpr std::size_t kMostExtMemory = kMostApduData - kExtMemoryHead;

} // namespace

void Management::ReadExtendedMemory(const Apdu& apdu) {
    if (apdu.data.size() != kExtMemoryHead) {
        Refuse(apdu, "its length is wrong");
        return;
    }
    const std::size_t count = apdu.data[0];
    const auto address = Number24(apdu.data.subspan(1));
    const bool isPossible = count != 0 && count <= kMostExtMemory;
    const auto octets = isPossible ? m_device.ReadMemory(address, count) : std::nullopt;
    const auto code = octets                        ? kSuccess
                      : count > kMostExtMemory      ? kTooLong
                      : count == 0                  ? kUnspecified
                      : m_device.HasMemory(address) ? kMemoryError
                                                    : kAddressVoid;
    const std::array<std::uint8_t, kExtMemoryHead> head{code, apdu.data[1], apdu.data[2], apdu.data[3]};
    Answer(Service::MemoryExtendedReadResponse, 0, head, octets ? Octets(*octets) : Octets());
}

void Management::WriteExtendedMemory(const Apdu& apdu) {
    if (apdu.data.size() < kExtMemoryHead) {
        Refuse(apdu, "its length is wrong");
        return;
    }
    const std::size_t count = apdu.data[0];
    const auto octets = apdu.data.subspan(kExtMemoryHead);
    ReturnCode code = kUnspecified;
    if (count != 0 && count == octets.size() && count <= kMostExtMemory) {
        code = ReturnCodeOf(WriteOctets(apdu, Number24(apdu.data.subspan(1)), octets));
    } else {
        Refuse(apdu, "its length is wrong");
        code = count > kMostExtMemory ? kTooLong : kUnspecified;
    }
    const std::array<std::uint8_t, kExtMemoryHead> head{code, apdu.data[1], apdu.data[2], apdu.data[3]};
    Answer(Service::MemoryExtendedWriteResponse, 0, head);
}

} // namespace KnxDevice
