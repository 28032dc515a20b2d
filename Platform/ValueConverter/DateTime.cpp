// 19.xxx: date and time with flags, which composites also begin with. Fields that their flag calls not valid
// may hold anything.
#include "Tav/TAVTIME.h"
#include "Tav/TAVVALUE.h"
#include "ValueConverter/CivilTime.h"
#include "ValueConverter/Layouts.h"

namespace Datapoint {

namespace {

constexpr unsigned kFirstYear = 1900; // 0 on the bus
constexpr unsigned kLastYear = 2155;
constexpr std::uint8_t kNobodysHour = 0xFF; // 0:00 would be a time

// The largest numbers that the bits of a field hold, for fields that are not valid.
bool FitsBits(const CivilTime& time) {
    return time.month <= 15 && time.day <= 31 && time.hour <= 31 && time.minute <= 63 && time.second <= 63;
}

CivilTime Fields(const std::uint8_t* octets) {
    CivilTime time;
    time.year = kFirstYear + octets[0];
    time.month = octets[1] & 0x0FU;
    time.day = octets[2] & 0x1FU;
    time.dayOfWeek = octets[3] >> 5;
    time.hour = octets[3] & 0x1FU;
    time.minute = octets[4] & 0x3FU;
    time.second = octets[5] & 0x3FU;
    time.flags = (octets[6] * 256U | octets[7]) & kAllFlags;
    return time;
}

Status Check(const CivilTime& time, Reason reason) {
    if ((time.flags & kNoDate) == 0) {
        if (const Status status = CheckDate(time, reason); status != Status::Done) {
            return status;
        }
    }
    return (time.flags & kNoTime) == 0 ? CheckTime(time, true, reason) : Status::Done;
}

// What a flag takes back, or a fault puts in doubt, is no date and no time of day to whoever asks for one:
// devices send zeros there, which a clock must not take for midnight. The text keeps every bit.
TAVTIME Vouched(const CivilTime& time) {
    TAVTIME civil;
    if ((time.flags & (kFault | kNoYear)) == 0) {
        civil.year = static_cast<std::uint16_t>(time.year);
    }
    if ((time.flags & (kFault | kNoDate)) == 0) {
        civil.month = static_cast<std::uint8_t>(time.month);
        civil.day = static_cast<std::uint8_t>(time.day);
    }
    if ((time.flags & (kFault | kNoTime)) == 0) {
        civil.hour = static_cast<std::uint8_t>(time.hour);
        civil.minute = static_cast<std::uint8_t>(time.minute);
        civil.second = static_cast<std::uint8_t>(time.second);
    } else {
        civil.hour = kNobodysHour;
    }
    civil.SetWeekYearDay();
    return civil;
}

Status Decode(const Type&, std::span<const std::uint8_t> octets, TAVVALUE& value, Reason reason) {
    const CivilTime time = Fields(octets.data());
    if (const Status status = Check(time, reason); status != Status::Done) {
        return status;
    }
    TextBuffer text;
    PrintDateTime(time, text);
    value.SetTime(Vouched(time), text.View());
    return Status::Done;
}

Status Encode(const Type&, std::string_view text, Octets& octets, Reason reason) {
    CivilTime time;
    if (!ReadDateTime(text, time)) {
        return Refuse(Status::Malformed, reason, "'{}' is no date and time as '2024-05-01T12:00:00'",
                      Excerpt(text));
    }
    if (time.year < kFirstYear || time.year > kLastYear) {
        return Refuse(Status::OutOfRange, reason, "the year {} is not one of {}..{}", time.year, kFirstYear,
                      kLastYear);
    }
    if (const Status status = Check(time, reason); status != Status::Done) {
        return status;
    }
    if (!FitsBits(time)) {
        return Refuse(Status::OutOfRange, reason, "'{}' does not fit the bits of its fields", Excerpt(text));
    }
    octets[0] = static_cast<std::uint8_t>(time.year - kFirstYear);
    octets[1] = static_cast<std::uint8_t>(time.month);
    octets[2] = static_cast<std::uint8_t>(time.day);
    octets[3] = static_cast<std::uint8_t>(time.dayOfWeek << 5 | time.hour);
    octets[4] = static_cast<std::uint8_t>(time.minute);
    octets[5] = static_cast<std::uint8_t>(time.second);
    octets[6] = static_cast<std::uint8_t>(time.flags >> 8);
    octets[7] = static_cast<std::uint8_t>(time.flags);
    return Status::Done;
}

} // namespace

Status CheckDateTime(const std::uint8_t* octets, Reason reason) {
    return Check(Fields(octets), reason);
}

constinit const Layout kDateTime{64, Decode, Encode};

} // namespace Datapoint
