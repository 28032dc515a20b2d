// 2, 3, 6.020, 15 and every other type of several fields.
#include "ValueConverter/Composite.h"

#include "Tav/TAVVALUE.h"
#include "ValueConverter/JsonFields.h"
#include "ValueConverter/Layouts.h"

#include <algorithm>
#include <cassert>
#include <iterator>
#include <vector>

namespace Datapoint {

namespace {

// Bits in telegram order; a value of less than an octet is right-aligned in it.
class BitCursor {
public:
    explicit BitCursor(unsigned sizeInBits) : m_at(sizeInBits < 8 ? 8 - sizeInBits : 0) {}

    std::uint64_t Read(std::span<const std::uint8_t> octets, unsigned bits) {
        std::uint64_t value = 0;
        for (const unsigned end = m_at + bits; m_at < end; ++m_at) {
            value = value << 1 | (octets[m_at / 8] >> (7 - m_at % 8) & 1U);
        }
        return value;
    }

    void Write(std::uint64_t value, unsigned bits, std::uint8_t* octets) {
        for (unsigned bit = bits; bit-- > 0; ++m_at) {
            octets[m_at / 8] |= static_cast<std::uint8_t>((value >> bit & 1U) << (7 - m_at % 8));
        }
    }

private:
    unsigned m_at;
};

void PrintField(const Field& field, std::uint64_t bits, std::string& text) {
    if (field.kind == FieldKind::Digits) {
        // A nibble above 9 is no digit, but it is what the device sent.
        fmt::format_to(std::back_inserter(text), "\"{:0{}x}\"", bits, field.form.bits / 4);
        return;
    }
    assert(field.form.bits > 0);
    const unsigned unused = 64 - field.form.bits;
    const auto raw = field.form.isSigned ? static_cast<std::int64_t>(bits << unused) >> unused
                                         : static_cast<std::int64_t>(bits);
    text += DecimalText(field.form.ToUnits(raw), field.form.decimals).View();
}

// What a field may hold.
enum class Allowed {
    OfTheType,
    WhatTheBitsHold, ///< also what only a device would send
};

// 0 to 15; 16 for what is no digit.
std::uint64_t Nibble(char c, Allowed allowed) {
    if (c >= '0' && c <= '9') {
        return static_cast<std::uint64_t>(c - '0');
    }
    return allowed == Allowed::WhatTheBitsHold && c >= 'a' && c <= 'f'
               ? static_cast<std::uint64_t>(c - 'a' + 10)
               : 16;
}

Status ReadDigits(const Field& field, const JsonField& from, Allowed allowed, std::uint64_t& bits,
                  Reason reason) {
    const std::size_t digits = field.form.bits / 4;
    const bool allDigits =
        std::all_of(from.text.begin(), from.text.end(), [&](char c) { return Nibble(c, allowed) < 16; });
    if (from.kind != JsonField::Kind::Text || from.text.size() != digits || !allDigits) {
        return Refuse(Status::Malformed, reason, "a text of {} digits is expected", digits);
    }
    for (const char c : from.text) {
        bits = bits << 4 | Nibble(c, allowed);
    }
    return Status::Done;
}

Status ReadField(const Field& field, const JsonField& from, Allowed allowed, std::uint64_t& bits,
                 Reason reason) {
    if (field.kind == FieldKind::Digits) {
        return ReadDigits(field, from, allowed, bits, reason);
    }
    const bool isFlag = from.kind == JsonField::Kind::Boolean && field.form.bits == 1;
    if (from.kind != JsonField::Kind::Number && !isFlag) {
        return Refuse(Status::Malformed, reason, "a number is expected");
    }
    const Type limits = Limits(field.form.Minimum(), field.form.Maximum(), field.form.decimals);
    std::int64_t raw = 0;
    const Status status = ToRaw(field.form, limits, from.text, raw, reason);
    if (status == Status::Done && allowed == Allowed::OfTheType && !field.members.empty() &&
        !IsMember(field.members, raw)) {
        return Refuse(Status::OutOfRange, reason, "{} is not one of {}", from.text, field.members);
    }
    bits = static_cast<std::uint64_t>(raw);
    return status;
}

// The field's bits from the object's member, which is taken out of `members`.
Status TakeField(const Field& field, std::vector<JsonField>& members, Allowed allowed, std::uint64_t& bits,
                 Reason reason) {
    bits = 0;
    if (field.kind == FieldKind::Reserved) {
        return Status::Done;
    }
    const auto member = std::find_if(members.begin(), members.end(), [&](const JsonField& candidate) {
        return candidate.name == field.name;
    });
    if (member == members.end()) {
        return field.presence == FieldPresence::Optional
                   ? Status::Done
                   : Refuse(Status::Malformed, reason, "\"{}\" is left out", field.name);
    }
    const Status status = ReadField(field, *member, allowed, bits, reason);
    if (status != Status::Done && reason != nullptr) {
        *reason = fmt::format("\"{}\": {}", field.name, *reason);
    }
    members.erase(member);
    return status;
}

Status EncodeFields(const Type& type, std::string_view text, Allowed allowed, Octets& octets, Reason reason) {
    const auto& layout = static_cast<const CompositeLayout&>(*type.layout);
    std::vector<JsonField> members;
    std::string error;
    if (!ReadJsonFields(text, members, error)) {
        return Refuse(Status::Malformed, reason, "'{}' is not a JSON object of single values ({})",
                      Excerpt(text), error);
    }
    BitCursor cursor(layout.sizeInBits);
    for (const Field& field : layout.fields) {
        std::uint64_t bits = 0;
        if (const Status status = TakeField(field, members, allowed, bits, reason); status != Status::Done) {
            return status;
        }
        cursor.Write(bits, field.form.bits, octets.Data());
    }
    // A member that is left is unknown, or was given twice.
    return members.empty() ? Status::Done
                           : Refuse(Status::Malformed, reason, "\"{}\" is too many", members.front().name);
}

constexpr Field s_control[] = {UnsignedField("c", 1), UnsignedField("v", 1)};

constexpr Field s_stepControl[] = {UnsignedField("c", 1), UnsignedField("stepcode", 3)};

constexpr Field s_statusMode[] = {
    UnsignedField("a", 1), UnsignedField("b", 1),
    UnsignedField("c", 1), UnsignedField("d", 1),
    UnsignedField("e", 1), {"f", {.bits = 3}, FieldKind::Number, FieldPresence::Required, "1,2,4"},
};

constexpr Field s_accessData[] = {
    {"code", {.bits = 24}, FieldKind::Digits},
    FlagField("e"),
    FlagField("p"),
    FlagField("d"),
    FlagField("c"),
    {"index", {.bits = 4}, FieldKind::Number, FieldPresence::Optional},
};

} // namespace

constinit const CompositeLayout kControl = MakeComposite(s_control);
constinit const CompositeLayout kStepControl = MakeComposite(s_stepControl);
constinit const CompositeLayout kStatusMode = MakeComposite(s_statusMode);
constinit const CompositeLayout kAccessData = MakeComposite(s_accessData);

Status DecodeComposite(const Type& type, std::span<const std::uint8_t> octets, TAVVALUE& value, Reason) {
    const auto& layout = static_cast<const CompositeLayout&>(*type.layout);
    BitCursor cursor(layout.sizeInBits);
    std::string text;
    for (const Field& field : layout.fields) {
        const std::uint64_t bits = cursor.Read(octets, field.form.bits);
        if (field.kind != FieldKind::Reserved) {
            text += text.empty() ? "{\"" : ",\"";
            text += field.name;
            text += "\":";
            PrintField(field, bits, text);
        }
    }
    text += '}';
    value.SetJson(text);
    return Status::Done;
}

Status EncodeComposite(const Type& type, std::string_view text, Octets& octets, Reason reason) {
    return EncodeFields(type, text, Allowed::OfTheType, octets, reason);
}

Status EncodeReceivedComposite(const Type& type, std::string_view text, Octets& octets, Reason reason) {
    return EncodeFields(type, text, Allowed::WhatTheBitsHold, octets, reason);
}

} // namespace Datapoint
