// 2, 3, 6.020, 15 and every other type of several fields.
#include "ValueConverter/Composite.h"

#include "Tav/TAVVALUE.h"

#include <algorithm>
#include <utility>

namespace Datapoint {

namespace {

// Bits in telegram order; a value of less than an octet is right-aligned in it.
class BitCursor {
public:
    explicit BitCursor(const CompositeLayout& layout)
        : m_at(layout.fixedBits < 8 ? 8 - layout.fixedBits : 0) {}

    std::uint64_t Read(std::span<const std::uint8_t> octets, unsigned bits) {
        std::uint64_t value = 0;
        while (bits > 0) {
            const Part part = TakePart(bits);
            value = value << part.bits | (octets[part.octet] >> part.behind & part.mask);
        }
        return value;
    }

    void Write(std::uint64_t value, unsigned bits, std::uint8_t* octets) {
        while (bits > 0) {
            const Part part = TakePart(bits);
            octets[part.octet] |= static_cast<std::uint8_t>((value >> bits & part.mask) << part.behind);
        }
    }

    // Texts begin with an octet. `bits` 0: the rest.
    std::string_view ReadText(std::span<const std::uint8_t> octets, unsigned bits) {
        const auto rest = octets.subspan(m_at / 8);
        m_at += bits;
        return {reinterpret_cast<const char*>(rest.data()), bits == 0 ? rest.size() : bits / 8};
    }

    void WriteText(std::string_view text, unsigned bits, std::uint8_t* octets) {
        std::copy(text.begin(), text.end(), octets + m_at / 8);
        m_at += bits;
    }

private:
    // Bits of a field that stand in one octet.
    struct Part {
        std::size_t octet;
        unsigned bits;
        unsigned behind; // bits of the octet behind them
        std::uint64_t mask;
    };

    // The next part of a field of which `bits` are left, which are less by it.
    Part TakePart(unsigned& bits) {
        const unsigned left = 8 - m_at % 8;
        const unsigned count = std::min(bits, left);
        const Part part{m_at / 8, count, left - count, (std::uint64_t{1} << count) - 1};
        m_at += count;
        bits -= count;
        return part;
    }

    unsigned m_at;
};

const CompositeLayout& LayoutOf(const Type& type) {
    return static_cast<const CompositeLayout&>(*type.layout);
}

// Reads the members of one object into octets.
class Encoder {
public:
    Encoder(const CompositeLayout& layout, Allowed allowed, Octets& octets, Reason reason)
        : m_layout(layout), m_allowed(allowed), m_octets(octets), m_reason(reason), m_cursor(layout) {}

    Status Encode(std::string_view text) {
        std::string error;
        if (!ReadJsonFields(text, m_members, error)) {
            return Refuse(Status::Malformed, m_reason, "'{}' is not a JSON object of single values ({})",
                          Excerpt(text), error);
        }
        if (m_layout.sizeInBits == 0) {
            m_octets.Resize(m_layout.fixedBits / 8 + LengthOfLastText() + 1);
        }
        for (const Field& field : m_layout.fields) {
            if (const Status status = Add(field); status != Status::Done) {
                return status;
            }
        }
        // A member that is left is unknown, or was given twice.
        const auto left = std::find_if(m_members.begin(), m_members.end(), IsLeft);
        if (left != m_members.end()) {
            return Refuse(Status::Malformed, m_reason, "\"{}\" is too many", left->name);
        }
        return m_layout.check != nullptr ? m_layout.check(m_octets.Data(), m_allowed, m_reason)
                                         : Status::Done;
    }

private:
    static bool IsLeft(const JsonField& member) { return !member.taken; }

    JsonFields::iterator Find(const Field& field) {
        return std::find_if(m_members.begin(), m_members.end(), [&](const JsonField& member) {
            return IsLeft(member) && member.name == field.name;
        });
    }

    std::size_t LengthOfLastText() {
        const auto member = Find(m_layout.fields.back());
        return member == m_members.end() ? 0 : member->text.size();
    }

    // The field from the object's member, which is then taken.
    Status Add(const Field& field) {
        const unsigned bits = field.form.bits;
        if (field.kind == FieldKind::Reserved) {
            m_cursor.Write(0, bits, m_octets.Data());
            return Status::Done;
        }
        const auto member = Find(field);
        if (member == m_members.end()) {
            if (field.presence == FieldPresence::Required) {
                return Refuse(Status::Malformed, m_reason, "\"{}\" is left out", field.name);
            }
            m_cursor.Write(field.whenLeftOut, bits, m_octets.Data());
            return Status::Done;
        }
        const Status status = field.IsText() ? AddText(field, *member) : AddNumber(field, *member);
        if (status != Status::Done && m_reason != nullptr) {
            *m_reason = fmt::format("\"{}\": {}", field.name, *m_reason);
        }
        member->taken = true;
        return status;
    }

    Status AddText(const Field& field, const JsonField& member) {
        TextBuffer text;
        const Status status = ReadText(field, member, m_allowed, text, m_reason);
        if (status == Status::Done) {
            m_cursor.WriteText(text.View(), field.form.bits, m_octets.Data());
        }
        return status;
    }

    Status AddNumber(const Field& field, const JsonField& member) {
        std::uint64_t bits = 0;
        const Status status = ReadField(field, member, m_allowed, bits, m_reason);
        if (status == Status::Done) {
            m_cursor.Write(bits, field.form.bits, m_octets.Data());
        }
        return status;
    }

    const CompositeLayout& m_layout;
    Allowed m_allowed;
    Octets& m_octets;
    Reason m_reason;
    BitCursor m_cursor;
    JsonFields m_members;
};

} // namespace

Status DecodeComposite(const Type& type, std::span<const std::uint8_t> octets, TAVVALUE& value,
                       Reason reason) {
    const CompositeLayout& layout = LayoutOf(type);
    if (layout.sizeInBits == 0 && octets.size() <= layout.fixedBits / 8) {
        return Refuse(Status::Malformed, reason, "{} octets are fewer than the {} of the shortest value",
                      octets.size(), layout.fixedBits / 8 + 1);
    }
    if (layout.check != nullptr) {
        const Status status = layout.check(octets.data(), Allowed::WhatTheBitsHold, reason);
        if (status != Status::Done) {
            return status;
        }
    }
    BitCursor cursor(layout);
    TextBuffer json;
    std::string_view before = "{\"";
    for (const Field& field : layout.fields) {
        if (field.kind == FieldKind::Reserved) {
            cursor.Read(octets, field.form.bits);
            continue;
        }
        json += std::exchange(before, ",\"");
        json += field.name;
        json += "\":";
        if (!field.IsText()) {
            PrintField(field, cursor.Read(octets, field.form.bits), json);
        } else if (const Status status =
                       PrintText(field, cursor.ReadText(octets, field.form.bits), json, reason);
                   status != Status::Done) {
            return status;
        }
    }
    json += '}';
    value.SetJson(json.View());
    return Status::Done;
}

Status EncodeComposite(const Type& type, std::string_view text, Octets& octets, Reason reason) {
    return Encoder(LayoutOf(type), Allowed::OfTheType, octets, reason).Encode(text);
}

Status EncodeReceivedComposite(const Type& type, std::string_view text, Octets& octets, Reason reason) {
    return Encoder(LayoutOf(type), Allowed::WhatTheBitsHold, octets, reason).Encode(text);
}

} // namespace Datapoint
