#include "ValueConverter/Field.h"

#include "ValueConverter/Characters.h"
#include "ValueConverter/Floats.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <charconv>
#include <cmath>

namespace Datapoint {

namespace {

void PrintNumber(const NumberForm& form, std::uint64_t bits, TextBuffer& json) {
    assert(form.bits > 0);
    const unsigned unused = 64 - form.bits;
    const auto raw =
        form.isSigned ? static_cast<std::int64_t>(bits << unused) >> unused : static_cast<std::int64_t>(bits);
    json += DecimalText(form.ToUnits(raw), form.decimals).View();
}

// JSON has no numbers that are not finite; they are texts.
void PrintFloat32(float number, TextBuffer& json) {
    std::array<char, 24> digits{};
    const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    const std::string_view text(digits.data(), static_cast<std::size_t>(result.ptr - digits.data()));
    if (std::isfinite(number)) {
        json += text;
    } else {
        json += '"';
        json += text;
        json += '"';
    }
}

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

Status RefuseNoNumber(Reason reason) {
    return Refuse(Status::Malformed, reason, "a number is expected");
}

Status ReadNumber(const Field& field, const JsonField& from, Allowed allowed, std::uint64_t& bits,
                  Reason reason) {
    const NumberForm& form = field.form;
    const bool isFlag = from.kind == JsonField::Kind::Boolean && form.bits == 1;
    if (from.kind != JsonField::Kind::Number && !isFlag) {
        return RefuseNoNumber(reason);
    }
    const bool ofTheType = allowed == Allowed::OfTheType;
    const Type limits = ofTheType && field.IsLimited()
                            ? Limits(field.minimum, field.maximum, form.decimals)
                            : Limits(form.Minimum(), form.Maximum(), form.decimals);
    std::int64_t raw = 0;
    const Status status = ToRaw(form, limits, from.text, raw, reason);
    if (status == Status::Done && ofTheType && !field.members.empty() && !IsMember(field.members, raw)) {
        return Refuse(Status::OutOfRange, reason, "{} is not one of {}", from.text, field.members);
    }
    bits = static_cast<std::uint64_t>(raw);
    return status;
}

Status ReadHalfFloat(const JsonField& from, std::uint64_t& bits, Reason reason) {
    if (from.kind == JsonField::Kind::Null) {
        bits = kInvalidFloat16;
        return Status::Done;
    }
    if (from.kind != JsonField::Kind::Number) {
        return Refuse(Status::Malformed, reason, "a number or null is expected");
    }
    constexpr Type kLimits = Limits(kFloat16Minimum, kFloat16Maximum, 2);
    unsigned raw = 0;
    const Status status = ReadFloat16(from.text, kLimits, raw, reason);
    bits = raw;
    return status;
}

Status ReadFloat(const JsonField& from, std::uint64_t& bits, Reason reason) {
    float number = 0;
    if (from.kind == JsonField::Kind::Text) {
        if (ReadFloat32(from.text, number, nullptr) != Status::Done || std::isfinite(number)) {
            return Refuse(Status::Malformed, reason, R"(a number, "nan", "inf" or "-inf" is expected)");
        }
    } else if (from.kind != JsonField::Kind::Number) {
        return RefuseNoNumber(reason);
    } else if (const Status status = ReadFloat32(from.text, number, reason); status != Status::Done) {
        return status;
    }
    bits = std::bit_cast<std::uint32_t>(number);
    return Status::Done;
}

// The most octets that a text may have; those of UTF-8 need one more for their NUL.
std::size_t LongestText(const Field& field, Allowed allowed) {
    if (field.kind == FieldKind::Utf8ToTheEnd) {
        return std::string::npos;
    }
    const bool needsNul = field.kind == FieldKind::Utf8 && allowed == Allowed::OfTheType;
    return field.form.bits / 8 - (needsNul ? 1 : 0);
}

} // namespace

void PrintField(const Field& field, std::uint64_t bits, TextBuffer& json) {
    switch (field.kind) {
    case FieldKind::Digits:
        // A nibble above 9 is no digit, but it is what the device sent.
        json += fmt::format("\"{:0{}x}\"", bits, field.form.bits / 4);
        break;
    case FieldKind::Float16:
        if (bits == kInvalidFloat16) {
            json += "null";
        } else {
            json += DecimalText(Float16Hundredths(static_cast<unsigned>(bits)), 2).View();
        }
        break;
    case FieldKind::Float32:
        PrintFloat32(std::bit_cast<float>(static_cast<std::uint32_t>(bits)), json);
        break;
    default: PrintNumber(field.form, bits, json); break;
    }
}

Status ReadField(const Field& field, const JsonField& from, Allowed allowed, std::uint64_t& bits,
                 Reason reason) {
    switch (field.kind) {
    case FieldKind::Digits: return ReadDigits(field, from, allowed, bits, reason);
    case FieldKind::Float16: return ReadHalfFloat(from, bits, reason);
    case FieldKind::Float32: return ReadFloat(from, bits, reason);
    default: return ReadNumber(field, from, allowed, bits, reason);
    }
}

Status PrintText(const Field& field, std::string_view octets, TextBuffer& json, Reason reason) {
    octets = octets.substr(0, octets.find('\0'));
    TextBuffer characters;
    if (field.kind == FieldKind::Ascii) {
        AppendLatin1(octets, characters); // whoever sends more than ASCII means ISO 8859-1
    } else if (!IsUtf8(octets)) {
        return RefuseNotUtf8(reason);
    } else {
        characters += octets;
    }
    json += '"';
    for (const char c : characters.View()) {
        if (c == '"' || c == '\\') {
            json += '\\';
        }
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) {
            json += fmt::format("\\u{:04x}", static_cast<unsigned>(c));
        } else {
            json += c;
        }
    }
    json += '"';
    return Status::Done;
}

Status ReadText(const Field& field, const JsonField& from, Allowed allowed, TextBuffer& octets,
                Reason reason) {
    if (from.kind != JsonField::Kind::Text) {
        return Refuse(Status::Malformed, reason, "a text is expected");
    }
    const char32_t ascii = allowed == Allowed::OfTheType ? kHighestAscii : kHighestLatin1;
    const Status status = field.kind == FieldKind::Ascii ? ToLatin1(from.text, ascii, octets, reason)
                                                         : CheckUtf8(from.text, reason);
    if (status != Status::Done) {
        return status;
    }
    if (field.kind != FieldKind::Ascii) {
        octets += from.text;
    }
    const std::size_t longest = LongestText(field, allowed);
    return octets.View().size() <= longest
               ? Status::Done
               : Refuse(Status::OutOfRange, reason, "'{}' has more than {} octets", Excerpt(from.text),
                        longest);
}

} // namespace Datapoint
