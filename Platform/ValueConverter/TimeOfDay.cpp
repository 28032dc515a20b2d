// 10.xxx: time of day with an optional day of the week.
#include "Tav/TAVTIME.h"
#include "Tav/TAVVALUE.h"
#include "ValueConverter/CivilTime.h"
#include "ValueConverter/Layouts.h"

namespace Datapoint {

namespace {

CivilTime Fields(const std::uint8_t* octets) {
    CivilTime time;
    time.dayOfWeek = octets[0] >> 5;
    time.hour = octets[0] & 0x1FU;
    time.minute = octets[1] & 0x3FU;
    time.second = octets[2] & 0x3FU;
    return time;
}

Status Decode(const Type&, std::span<const std::uint8_t> octets, TAVVALUE& value, Reason reason) {
    const CivilTime time = Fields(octets.data());
    if (const Status status = CheckTime(time, false, reason); status != Status::Done) {
        return status;
    }
    TextBuffer text;
    if (time.dayOfWeek != 0) {
        text += DayName(time.dayOfWeek);
        text += ' ';
    }
    PrintTime(time, text);
    TAVTIME civil;
    civil.hour = static_cast<std::uint8_t>(time.hour);
    civil.minute = static_cast<std::uint8_t>(time.minute);
    civil.second = static_cast<std::uint8_t>(time.second);
    civil.dayOfWeek = static_cast<std::uint8_t>(time.dayOfWeek);
    value.SetTime(civil, text.View());
    return Status::Done;
}

bool Read(std::string_view text, CivilTime& time) {
    if (ReadDateTime(text, time)) {
        return (time.flags & kNoTime) == 0;
    }
    time = {};
    TakeDayName(text, time);
    return TakeTime(text, time) && text.empty();
}

// A date in front of the time tells the day of the week: one value for the time serves 10, 11 and 19.
Status Encode(const Type&, std::string_view text, Octets& octets, Reason reason) {
    CivilTime time;
    if (!Read(text, time)) {
        return Refuse(Status::Malformed, reason, "'{}' is no time as '12:00:00' or 'Wed 12:00:00'",
                      Excerpt(text));
    }
    if (const Status status = CheckTime(time, false, reason); status != Status::Done) {
        return status;
    }
    octets[0] = static_cast<std::uint8_t>(time.dayOfWeek << 5 | time.hour);
    octets[1] = static_cast<std::uint8_t>(time.minute);
    octets[2] = static_cast<std::uint8_t>(time.second);
    return Status::Done;
}

} // namespace

Status CheckTimeOfDay(const std::uint8_t* octets, Reason reason) {
    return CheckTime(Fields(octets), false, reason);
}

constinit const Layout kTimeOfDay{24, Decode, Encode};

} // namespace Datapoint
