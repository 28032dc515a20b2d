// 11.xxx: date of 1990 to 2089.
#include "Tav/TAVTIME.h"
#include "Tav/TAVVALUE.h"
#include "ValueConverter/CivilTime.h"
#include "ValueConverter/Layouts.h"

namespace Datapoint {

namespace {

constexpr unsigned kFirstYear = 1990; // 90 on the bus
constexpr unsigned kLastYear = 2089;  // 89

Status Decode(const Type&, std::span<const std::uint8_t> octets, TAVVALUE& value, Reason reason) {
    CivilTime time;
    time.day = octets[0] & 0x1FU;
    time.month = octets[1] & 0x0FU;
    const unsigned year = octets[2] & 0x7FU;
    if (year > 99) {
        return Refuse(Status::OutOfRange, reason, "the year {} is above 99", year);
    }
    if (const Status status = CheckDate(time, reason); status != Status::Done) {
        return status;
    }
    time.year = year + (year >= kFirstYear % 100 ? 1900 : 2000);
    TextBuffer text;
    PrintDate(time, text);
    TAVTIME civil;
    civil.year = static_cast<std::uint16_t>(time.year);
    civil.month = static_cast<std::uint8_t>(time.month);
    civil.day = static_cast<std::uint8_t>(time.day);
    civil.SetWeekYearDay();
    value.SetTime(civil, text.View());
    return Status::Done;
}

bool Read(std::string_view text, CivilTime& time) {
    if (ReadDateTime(text, time)) {
        return (time.flags & (kNoDate | kNoYear)) == 0;
    }
    return TakeDate(text, time) && text.empty();
}

// A time behind the date is of no interest: one value for the time serves 10, 11 and 19.
Status Encode(const Type&, std::string_view text, Octets& octets, Reason reason) {
    CivilTime time;
    if (!Read(text, time)) {
        return Refuse(Status::Malformed, reason, "'{}' is no date as '2024-05-01'", Excerpt(text));
    }
    if (time.year < kFirstYear || time.year > kLastYear) {
        return Refuse(Status::OutOfRange, reason, "the year {} is not one of {}..{}", time.year, kFirstYear,
                      kLastYear);
    }
    if (const Status status = CheckDate(time, reason); status != Status::Done) {
        return status;
    }
    octets[0] = static_cast<std::uint8_t>(time.day);
    octets[1] = static_cast<std::uint8_t>(time.month);
    octets[2] = static_cast<std::uint8_t>(time.year % 100);
    return Status::Done;
}

} // namespace

constinit const Layout kDate{24, Decode, Encode};

} // namespace Datapoint
