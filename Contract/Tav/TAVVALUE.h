// Value of a data point: typed, with its text.
#pragma once

#include "Tav/Export.h"
#include "Tav/TAVTIME.h"

#include <cstdint>
#include <string>
#include <string_view>

/// Kind of content of a TAVVALUE, called "ivt" in messages. The numbers are part of the interface.
enum class TavValueType : std::uint32_t {
    Null = 1,     ///< no value; its text is empty
    Boolean = 2,  ///< text "0" or "1"
    Integer = 3,  ///< signed 64 bits; decimal text
    Unsigned = 4, ///< unsigned 64 bits; decimal text
    Float = 5,    ///< 32-bit IEEE 754; shortest decimal that reads back as the same float
    Double = 6,   ///< 64-bit IEEE 754; shortest decimal that reads back as the same double
    Text = 7,     ///< UTF-8 characters
    Json = 8,     ///< a JSON object or array, kept letter for letter
    Time = 13,    ///< date, time of day or both; ISO 8601 text
};

/// One data point value. It crosses between processes as text ("native" form):
///
///     null            (empty)
///     boolean         0  1
///     number          -12   21.5   1e-07
///     date and time   2024-05-01T12:00:00   2024-05-01   12:00:00
///     composite       {"c":1,"stepcode":3}
///     text            the characters themselves; a text that is empty, begins with a quotation mark or holds
///                     control characters (below U+0020, or U+007F) is written as a JSON string
///
/// Serialize(Deserialize(x)) is x for everything that Serialize(…, true) can write. The tag that Deserialize
/// gives is what the text looks like; whoever knows the datapoint type goes by the text and not by the tag.
/// A number that is not finite is written as "nan" or "inf", with or without a minus sign, and reads back as
/// text.
/// A value type; not synchronised.
class TAV_EXPORT TAVVALUE {
public:
    /// Null: tag 1, time part cleared, text empty.
    TAVVALUE() = default;

    /// Empty content of the given kind: 0, "", the cleared time.
    explicit TAVVALUE(TavValueType type);

    TavValueType GetType() const { return m_type; }
    bool IsNull() const { return m_type == TavValueType::Null; }

    void SetNull();
    void SetBoolean(bool value);
    void SetInteger(std::int64_t value);
    void SetUnsigned(std::uint64_t value);
    void SetFloat(float value);
    void SetDouble(double value);
    void SetText(std::string_view utf8);
    /// `json` must be one JSON object or array without white space around it, nested at most 255 deep.
    void SetJson(std::string_view json);

    /// A number with its own decimal text, for exact decimals that no binary fraction holds ("20.47"). `text`
    /// must be the canonical decimal of the number. Tag Double.
    void SetDecimal(std::string_view text);

    /// A time with the text that stands for it, e.g. only a date, or with flags behind it. Tag 13.
    void SetTime(const TAVTIME& time, std::string_view text);

    /// Stores the time, tag 13, with the text "YYYY-MM-DDThh:mm:ss".
    TAVVALUE& operator=(const TAVTIME& time);

    /// The time of a value with tag 13; the cleared TAVTIME for every other.
    operator TAVTIME() const { return m_time; }

    /// The content as a number: booleans 0 or 1, decimals cut towards zero and limited to the range, a text
    /// that is a decimal number by its value, everything else 0.
    std::int64_t ToInteger() const;

    /// The content as a double, by the same rules without cutting.
    double ToDouble() const;

    /// Replaces `text` by the value's text. `native` true: the form above. False: the same without JSON
    /// quoting of texts, for people.
    void Serialize(std::string& text, bool native) const;

    /// Reads the native form. Never fails: what looks like nothing else is text.
    void Deserialize(std::string_view text);

    /// The text for messages: as Serialize(…, false), "null" for null.
    std::string ToString() const;

    /// Content of a Text value without quoting; the native form of every other kind without a copy where
    /// there is one. The view is valid until the object is changed or destroyed; `buffer` holds the text
    /// where it had to be made.
    std::string_view TextView(std::string& buffer) const;

private:
    void Start(TavValueType type);
    void Keep(TavValueType type, std::string_view text);

    TavValueType m_type = TavValueType::Null;
    union {
        bool boolean;
        std::int64_t integer;
        std::uint64_t uinteger;
        float real32;
        double real64;
    } m_number = {};
    bool m_hasText = false; // m_text is the native text (or the content of a Text value)
    TAVTIME m_time;
    std::string m_text;
};
