#include "ValueConverter/NumberForm.h"

#include <charconv>

namespace Datapoint {

bool IsMember(std::string_view members, std::int64_t value) {
    const char* at = members.data();
    const char* const end = at + members.size();
    while (at < end) {
        std::int64_t first = 0;
        at = std::from_chars(at, end, first).ptr;
        std::int64_t last = first;
        if (end - at > 2 && at[0] == '.') {
            at = std::from_chars(at + 2, end, last).ptr;
        }
        if (value >= first && value <= last) {
            return true;
        }
        ++at; // the comma
    }
    return false;
}

Status RefuseNotANumber(std::string_view text, Reason reason) {
    return text.empty() ? Refuse(Status::Malformed, reason, "an empty text is no value")
                        : Refuse(Status::Malformed, reason, "'{}' is not a number", Excerpt(text));
}

Status RefuseRange(const Scaled& value, std::string_view text, const Type& type, Reason reason) {
    const bool above = value.Compare(type.maximum) > 0;
    const DecimalText limit(above ? type.maximum : type.minimum, type.decimals);
    return Refuse(Status::OutOfRange, reason, "{} is {} {}{}{}", Excerpt(text), above ? "above" : "below",
                  limit.View(), type.unit.empty() ? "" : " ", type.unit);
}

Status RefuseNotWhole(std::string_view text, Reason reason) {
    return Refuse(Status::OutOfRange, reason, "{} is not a whole number", Excerpt(text));
}

} // namespace Datapoint
