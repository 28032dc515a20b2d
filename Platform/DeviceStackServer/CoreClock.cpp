#include "DeviceStackServer/Core.h"

#include <log4cplus/loggingmacros.h>

#include <algorithm>

namespace DeviceStackServer {

namespace FixedId = ProjectFile::FixedId;

namespace {

/// The moment that a value of type 19.001 names: date and time, and flags behind them. Nothing when a flag
/// says that a part is missing or wrong, or when the calendar has no such day.
std::optional<Seconds> ClockTime(std::string_view text) {
    const auto end = std::min(text.find(';'), text.size());
    for (const std::string_view flag : {";f=1", ";ny=1", ";nd=1", ";nt=1"}) {
        if (text.find(flag, end) != std::string_view::npos)
            return std::nullopt;
    }
    return ParseCivil(text.substr(0, end));
}

} // namespace

void Core::SetClock(Client& client, const Asker& asker, const std::string& text) {
    const auto civil = ClockTime(text);
    if (!civil)
        return Fail(asker, DeviceStack::kValueDoesNotFit, "\"" + text + "\" names no moment of the calendar");
    if (const auto utc = m_environment.SetSystemClock(*civil)) {
        m_clock.ClearOffset();
        m_now.utc = *utc;
    } else {
        m_clock.SetOffset(*civil, m_now.utc);
    }
    LOG4CPLUS_INFO(log4cplus::Logger::getInstance("DeviceStack.Server"),
                   *client.origin << " sets the clock to " << CivilText(*civil) << '.');
    ReportClock(client.origin);
    Answer(asker,
           ReplyLine(asker.id, DeviceStack::SetValueResult{m_store.FindById(FixedId::kClock)->change}));
}

/// The clock's data points are computed when somebody asks; nothing happens to any other.
void Core::RefreshClock(DataPointEntry& entry) const {
    if (entry.Id() < FixedId::kClock || entry.Id() > FixedId::kClockTime)
        return;
    const auto civil = m_clock.CivilSeconds(m_now.utc);
    switch (entry.Id()) {
    case FixedId::kClock: entry.text = CivilText(civil); break;
    case FixedId::kClockDate: entry.text = CivilDateText(civil); break;
    default: entry.text = CivilTimeText(civil); break;
    }
    entry.utc = m_now.utc;
}

void Core::ReportClock(const SharedText& origin) {
    m_clock.MarkReported(m_now);
    for (const auto id : {FixedId::kClock, FixedId::kClockDate, FixedId::kClockTime}) {
        auto& entry = *m_store.FindById(id);
        m_store.RecordQuietly(entry, {}, origin, m_now.utc);
        Publish(entry);
    }
    ScheduleClock();
}

void Core::ScheduleClock() {
    m_deadlines.Cancel(m_clockReport);
    if (m_settings.clockInterval > Seconds(0))
        m_clockReport =
            m_deadlines.Add(m_now.monotonic + m_settings.clockInterval, [this] { ReportClock(m_self); });
}

} // namespace DeviceStackServer
