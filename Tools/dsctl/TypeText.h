// Datapoint types and octets as people type them, and what is printed of a value in its octets.
#pragma once

#include "Verbs.h"

#include "ValueConverter/DatapointTypes.h"

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace KnxStack {
class GroupValue;
}

namespace Dsctl {

/// Ends a verb: the cause as one sentence, and its status.
class Refusal : public std::runtime_error {
public:
    Refusal(ExitCode code, const std::string& cause) : std::runtime_error(cause), m_code(code) {}
    ExitCode Code() const { return m_code; }

private:
    ExitCode m_code;
};

/// Reads every spelling of a datapoint type. Throws Refusal: kUsage for a text that is none, kRefused for a
/// main number that the table does not have. The sub number need not be in the table.
Datapoint::Number ReadType(const std::string& text);

/// What values are converted by: a datapoint type, or a size alone.
struct Rule {
    std::string name; ///< "9.001", "16 bits"
    KNXDPT dpt;
    unsigned sizeInBits;         ///< 0: any number of octets
    const Datapoint::Type* type; ///< null for a size
};

Rule RuleOf(Datapoint::Number number);

/// As ReadType, and "6bit", "16 bits" for a size. Throws Refusal in the same way.
Rule ReadRule(const std::string& text);

/// Reads octets: hexadecimal digits in upper or lower case, two for an octet, in one piece or in many, with
/// blanks, colons or 0x between them. A digit that stands alone is an octet. Throws Refusal, kUsage.
std::vector<std::uint8_t> ReadOctets(const std::vector<std::string>& pieces);

/// The octets of a value. With the rule's size where they can hold such a value, else with their own.
KnxStack::GroupValue ToGroupValue(const Rule& rule, std::span<const std::uint8_t> octets);

/// A value of the type.
struct Example {
    std::string value; ///< its text
    std::string octets;
};

/// A plain value of the rule's type, which there must be, for people who look for the form of its text.
Example ExampleOf(const Rule& rule);

/// Names of values: the number, and what it means.
struct ValueName {
    std::string_view value;
    std::string_view name;
};

/// All names of values, or of single bits, that the table has for the type.
std::vector<ValueName> ValueNames(const Datapoint::Type& type);

} // namespace Dsctl
