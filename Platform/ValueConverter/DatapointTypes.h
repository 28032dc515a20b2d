// The datapoint types that the platform knows, and conversion that says why it refuses: for daemons and
// tools.
#pragma once

#include "Tav/Export.h"
#include "Vesk/KNXDPT.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

class TAVVALUE;
namespace KnxStack {
class GroupValue;
}

/// Everything here is stateless and may be called from any thread. All texts are UTF-8.
namespace Datapoint {

struct Layout; // how a value stands in its octets; internal

/// Sub number of a type of which only the main number is known.
inline constexpr std::uint16_t kAnySub = 0xFFFF;

/// Main and sub number, the 9 and the 1 of 9.001.
struct Number {
    std::uint16_t main = 0;
    std::uint16_t sub = kAnySub;

    bool operator==(const Number& other) const = default;
};

/// One row of the table. Rows live as long as the program.
struct Type {
    std::uint16_t main;
    std::uint16_t sub; ///< kAnySub: the rule for every sub number that has no row of its own
    const Layout* layout;
    std::string_view name;       ///< as the KNX Standard has it: "DPT_Value_Temp"
    std::string_view unit;       ///< "°C"; empty where there is none
    std::int64_t minimum;        ///< range of the value in units of 10^-decimals; minimum = maximum = 0 where
    std::int64_t maximum;        ///< the value is no number, or its layout alone limits it
    std::uint8_t decimals;       ///< most digits behind the decimal point in the value's text
    std::string_view resolution; ///< step between two values, for people: "0.01*2^E"
    std::string_view valueNames; ///< names of values: "0=Off;1=On", of single bits: "1=Fault;2=Cool"; empty
                                 ///< where there are none
    std::string_view members;    ///< the values allowed where the range has gaps: "0..17,20"

    Number GetNumber() const { return {main, sub}; }
};

/// The listed types by main and sub number in ascending order, without the rows for any sub number.
TAV_EXPORT std::span<const Type> AllTypes();

/// The row of the type; for an unknown sub number the row of its main number; null for an unknown main
/// number. Constant time.
TAV_EXPORT const Type* Find(Number number);

/// Reads every spelling in use: "9.001", "DPT9.001", "DPT 9.001", "DPT-9.001", "DPST-9-1", "DPT-9", "9.xxx",
/// "9.*", "9"; blanks around and letter case do not matter. A sub number with fewer than three digits counts
/// as a number: "9.1" is 9.001. Nothing for every other text. The type need not be one that Find() knows.
TAV_EXPORT std::optional<Number> Parse(std::string_view text);

/// "9.001"; "9.xxx" for kAnySub.
TAV_EXPORT std::string ToString(Number number);

/// The record for the converter, with the size modulo 256. kAnySub becomes a sub number with the main
/// number's widest rule. Size 0 for an unknown main number and for types of variable length.
TAV_EXPORT KNXDPT ToKnxDpt(Number number);

/// KNXDPT::reserved of a 13.002 whose values are in m³/h with four decimals, as the KNX Standard has it.
/// Without it they are integers, as devices and other programs use them.
inline constexpr std::uint8_t kStandardResolution = 1;

/// Size of the value in bits: 1 to 7 or a multiple of 8; 0 for types of variable length.
TAV_EXPORT unsigned SizeInBits(const Type& type);

/// "-273..670433.28", "0..17,20"; for a value of several fields "temp -273..655.34; attributes 0..255". Empty
/// where the value is no number.
TAV_EXPORT std::string Range(const Type& type);

/// One field of a value of several fields.
struct FieldFacts {
    std::string_view name; ///< the member of the JSON object; empty for reserved bits
    unsigned sizeInBits;   ///< 0: the rest of the value
    std::string range;     ///< "-273..655.34"; empty where the field is no number, or any number
};

/// The fields in telegram order, the most significant first; none for a type that is no JSON object.
TAV_EXPORT std::vector<FieldFacts> Fields(const Type& type);

/// Name of a value of the type ("Comfort" for 1 of 20.102, "Overridden" for 4, the third bit, of 21.001);
/// empty where the table has none.
TAV_EXPORT std::string_view ValueName(const Type& type, std::int64_t value);

/// How a conversion ended.
enum class Status : std::uint8_t {
    Done,
    UnknownType, ///< no row, or by size without a size
    Malformed,   ///< the text or the octets do not have the form of the type
    OutOfRange,  ///< the form is right, but the type has no such value
};

/// A conversion's end and, unless it is Done, its reason as a sentence: "9.001: 700000 is above 670433.28
/// °C".
struct Outcome {
    Status status = Status::Done;
    std::string reason;

    explicit operator bool() const { return status == Status::Done; }
};

/// Value to bus and bus to value as Vesk::KnxValueConverter does it, with the reason of a refusal. Unless
/// Done, the last parameter is untouched.
TAV_EXPORT Outcome Encode(const KNXDPT& dpt, const TAVVALUE& value, KnxStack::GroupValue& groupValue);
TAV_EXPORT Outcome Decode(const KNXDPT& dpt, const KnxStack::GroupValue& groupValue, TAVVALUE& value);

/// As Encode, but takes every text that Decode gives: also reserved values of an enumeration, numbers beyond
/// the type's range that its octets hold, and characters that the type does not have. For whoever keeps what
/// a device has sent; never for what is sent to one.
TAV_EXPORT Outcome EncodeReceived(const KNXDPT& dpt, const TAVVALUE& value, KnxStack::GroupValue& groupValue);

} // namespace Datapoint
