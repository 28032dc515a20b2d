#include "Tav/TAVVALUE.h"

#include "Base/JsonSyntax.h"
#include "Base/TimeText.h"
#include "Base/ValueText.h"

#include <array>
#include <charconv>
#include <limits>

namespace {

// Kinds whose text may be a number.
bool ReadsAsNumber(TavValueType type) {
    switch (type) {
    case TavValueType::Boolean:
    case TavValueType::Integer:
    case TavValueType::Unsigned:
    case TavValueType::Float:
    case TavValueType::Double:
    case TavValueType::Text: return true;
    default: return false;
    }
}

template <typename T>
void PrintNumber(T value, std::string& text) {
    std::array<char, 32> digits; // the longest double takes 24
    const auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), value);
    text.assign(digits.data(), end);
}

TavValueType TypeOfNumber(Base::Number::Kind kind) {
    switch (kind) {
    case Base::Number::Kind::Integer: return TavValueType::Integer;
    case Base::Number::Kind::Unsigned: return TavValueType::Unsigned;
    case Base::Number::Kind::Decimal: return TavValueType::Double;
    case Base::Number::Kind::None: break;
    }
    return TavValueType::Text;
}

} // namespace

TAVVALUE::TAVVALUE(TavValueType type)
    : m_type(type), m_hasText(type == TavValueType::Text || type == TavValueType::Json) {}

void TAVVALUE::Start(TavValueType type) {
    m_type = type;
    m_hasText = false;
    m_time = {};
    m_text.clear();
}

void TAVVALUE::Keep(TavValueType type, std::string_view text) {
    m_type = type;
    m_hasText = true;
    m_time = {};
    m_text.assign(text);
}

void TAVVALUE::SetNull() {
    Start(TavValueType::Null);
}

void TAVVALUE::SetBoolean(bool value) {
    Start(TavValueType::Boolean);
    m_number.boolean = value;
}

void TAVVALUE::SetInteger(std::int64_t value) {
    Start(TavValueType::Integer);
    m_number.integer = value;
}

void TAVVALUE::SetUnsigned(std::uint64_t value) {
    Start(TavValueType::Unsigned);
    m_number.uinteger = value;
}

void TAVVALUE::SetFloat(float value) {
    Start(TavValueType::Float);
    m_number.real32 = value;
}

void TAVVALUE::SetDouble(double value) {
    Start(TavValueType::Double);
    m_number.real64 = value;
}

void TAVVALUE::SetText(std::string_view utf8) {
    Keep(TavValueType::Text, utf8);
}

void TAVVALUE::SetJson(std::string_view json) {
    Keep(TavValueType::Json, json);
}

void TAVVALUE::SetDecimal(std::string_view text) {
    Keep(TavValueType::Double, text);
}

void TAVVALUE::SetTime(const TAVTIME& time, std::string_view text) {
    const auto copy = time; // may be a part of this value
    Keep(TavValueType::Time, text);
    m_time = copy;
}

TAVVALUE& TAVVALUE::operator=(const TAVTIME& time) {
    const auto copy = time;
    Start(TavValueType::Time);
    m_time = copy;
    return *this;
}

std::int64_t TAVVALUE::ToInteger() const {
    constexpr auto kMax = std::numeric_limits<std::int64_t>::max();
    const auto limit = [](std::uint64_t value) {
        return value > static_cast<std::uint64_t>(kMax) ? kMax : static_cast<std::int64_t>(value);
    };
    if (m_hasText) {
        const auto number = ReadsAsNumber(m_type) ? Base::ParseNumber(m_text) : Base::Number{};
        switch (number.kind) {
        case Base::Number::Kind::Integer: return number.integer;
        case Base::Number::Kind::Unsigned: return limit(number.uinteger);
        case Base::Number::Kind::Decimal: return Base::CutToInteger(number.decimal);
        case Base::Number::Kind::None: return 0;
        }
    }
    switch (m_type) {
    case TavValueType::Boolean: return m_number.boolean ? 1 : 0;
    case TavValueType::Integer: return m_number.integer;
    case TavValueType::Unsigned: return limit(m_number.uinteger);
    case TavValueType::Float: return Base::CutToInteger(m_number.real32);
    case TavValueType::Double: return Base::CutToInteger(m_number.real64);
    default: return 0;
    }
}

double TAVVALUE::ToDouble() const {
    if (m_hasText) {
        const auto number = ReadsAsNumber(m_type) ? Base::ParseNumber(m_text) : Base::Number{};
        switch (number.kind) {
        case Base::Number::Kind::Integer: return static_cast<double>(number.integer);
        case Base::Number::Kind::Unsigned: return static_cast<double>(number.uinteger);
        case Base::Number::Kind::Decimal: return number.decimal;
        case Base::Number::Kind::None: return 0.0;
        }
    }
    switch (m_type) {
    case TavValueType::Boolean: return m_number.boolean ? 1.0 : 0.0;
    case TavValueType::Integer: return static_cast<double>(m_number.integer);
    case TavValueType::Unsigned: return static_cast<double>(m_number.uinteger);
    case TavValueType::Float: return m_number.real32;
    case TavValueType::Double: return m_number.real64;
    default: return 0.0;
    }
}

void TAVVALUE::Serialize(std::string& text, bool native) const {
    if (m_hasText) {
        if (native && m_type == TavValueType::Text && Base::NeedsQuotes(m_text)) {
            Base::Quote(m_text, text);
        } else {
            text.assign(m_text);
        }
        return;
    }
    switch (m_type) {
    case TavValueType::Boolean: text.assign(1, m_number.boolean ? '1' : '0'); break;
    case TavValueType::Integer: PrintNumber(m_number.integer, text); break;
    case TavValueType::Unsigned: PrintNumber(m_number.uinteger, text); break;
    case TavValueType::Float: PrintNumber(m_number.real32, text); break;
    case TavValueType::Double: PrintNumber(m_number.real64, text); break;
    case TavValueType::Time: Base::PrintTime(m_time, text); break;
    default: text.clear(); break;
    }
}

void TAVVALUE::Deserialize(std::string_view text) {
    if (text.empty()) {
        SetNull();
        return;
    }
    if (text == "0" || text == "1") {
        Keep(TavValueType::Boolean, text);
        return;
    }
    if (text.front() == '"') {
        std::string content;
        if (Base::Unquote(text, content)) {
            Start(TavValueType::Text);
            m_text = std::move(content);
            m_hasText = true;
        } else {
            SetText(text);
        }
        return;
    }
    if (Base::IsJsonComposite(text)) {
        SetJson(text);
        return;
    }
    TAVTIME time;
    if (Base::ParseTime(text, time)) {
        SetTime(time, text);
        return;
    }
    Keep(TypeOfNumber(Base::ParseNumber(text).kind), text);
}

std::string TAVVALUE::ToString() const {
    if (IsNull()) {
        return "null";
    }
    std::string text;
    Serialize(text, false);
    return text;
}

std::string_view TAVVALUE::TextView(std::string& buffer) const {
    if (m_hasText) {
        return m_text;
    }
    Serialize(buffer, true);
    return buffer;
}
