// The device's clock, set from the bus.
#include "DeviceDataPoints.h"
#include "DscKnxAppPrg.h"

#include "Tav/TAVVALUE.h"

#include <boost/chrono/duration.hpp>
#include <log4cplus/loggingmacros.h>

#include <pthread.h>

#include <chrono>
#include <cstdlib>
#include <exception>
#include <utility>

namespace {

constexpr unsigned kFirstMainNumber = 10;
constexpr long kToleranceSeconds = 2;
constexpr std::chrono::milliseconds kBatchPeriod{200};
constexpr const char* kThreadName = "AppPrgTimeHndlr";

} // namespace

const std::array<DscKnxAppPrg::DateTimeHandler::KindRow, 10> DscKnxAppPrg::DateTimeHandler::s_kinds{{
    {DateTimeEntryKind::Time, "%H:%M:%S"},
    {DateTimeEntryKind::Date, "%Y-%m-%d"},
    {DateTimeEntryKind::Invalid, ""},
    {DateTimeEntryKind::Invalid, ""},
    {DateTimeEntryKind::Invalid, ""},
    {DateTimeEntryKind::Invalid, ""},
    {DateTimeEntryKind::Invalid, ""},
    {DateTimeEntryKind::Invalid, ""},
    {DateTimeEntryKind::Invalid, ""},
    {DateTimeEntryKind::DateTime, "%Y-%m-%d %H:%M:%S"},
}};

DscKnxAppPrg::DateTimeHandler::DateTimeHandler(std::unique_ptr<Vesk::IDeviceStackClient>& client)
    : m_client(client), m_logger(log4cplus::Logger::getInstance("KnxStack.DscKnxAppPrg.DateTimeHandler")) {
    m_thread = boost::thread([this] { Run(); });
}

DscKnxAppPrg::DateTimeHandler::~DateTimeHandler() {
    Exit();
}

void DscKnxAppPrg::DateTimeHandler::Run() {
    pthread_setname_np(pthread_self(), kThreadName);
    for (;;) {
        try {
            m_ioContext.run();
            return;
        } catch (const std::exception& error) {
            LOG4CPLUS_ERROR(m_logger, "DateTimeHandler::SetTime(): Can't set the time: " << error.what());
        } catch (...) {
            LOG4CPLUS_ERROR(m_logger, "DateTimeHandler::SetTime(): Can't set the time: unknown exception");
        }
    }
}

bool DscKnxAppPrg::DateTimeHandler::HasDate(DateTimeEntryKind kind) {
    return kind == DateTimeEntryKind::Date || kind == DateTimeEntryKind::DateTime;
}

bool DscKnxAppPrg::DateTimeHandler::HasTime(DateTimeEntryKind kind) {
    return kind == DateTimeEntryKind::Time || kind == DateTimeEntryKind::DateTime;
}

const DscKnxAppPrg::DateTimeHandler::KindRow& DscKnxAppPrg::DateTimeHandler::KindOf(const KNXDPT& dpt) {
    static constexpr KindRow kNoKind{DateTimeEntryKind::Invalid, ""};
    const unsigned row = dpt.main - kFirstMainNumber; // far outside for a smaller number
    return row < s_kinds.size() ? s_kinds[row] : kNoKind;
}

void DscKnxAppPrg::DateTimeHandler::AddEntry(TAVTIME time, const KNXDPT& dpt) {
    const KindRow& row = KindOf(dpt);
    if (row.kind == DateTimeEntryKind::Invalid) {
        LOG4CPLUS_ERROR(m_logger, "DateTimeHandler::AddEntry(): No valid DPT.");
        return;
    }
    if (HasDate(row.kind) && !TAVTIME::IsValidDate(time.year, time.month, time.day)) {
        LOG4CPLUS_ERROR(m_logger, "DateTimeHandler::AddEntry(): No valid date.");
        return;
    }
    if (HasTime(row.kind) && !TAVTIME::IsValidTime(time.hour, time.minute, time.second)) {
        LOG4CPLUS_ERROR(m_logger, "DateTimeHandler::AddEntry(): No valid time.");
        return;
    }
    LOG4CPLUS_DEBUG(m_logger,
                    "DateTimeHandler::AddEntry(): Adding DateTime entry " << time.Format(row.logFormat));

    const std::lock_guard lock(m_mutex);
    m_entries.push_back({time, row.kind});
    if (m_timerArmed)
        return; // the timer of the first telegram stands for all that follow it
    m_timer.expires_after(kBatchPeriod);
    m_timer.async_wait([this](const boost::system::error_code& error) {
        if (error != boost::asio::error::operation_aborted)
            SetTime();
    });
    m_timerArmed = true;
}

bool DscKnxAppPrg::DateTimeHandler::LockUnlessStopped(std::unique_lock<std::mutex>& lock) {
    while (!lock.try_lock()) {
        if (m_stopped)
            return false; // Exit holds the mutex and waits for this thread
        boost::this_thread::sleep_for(boost::chrono::milliseconds(1));
    }
    return true;
}

TAVVALUE DscKnxAppPrg::DateTimeHandler::CurrentTime() const {
    std::string text;
    if (!m_client || !m_client->GetValue(kClockDataPoint, text, false)) {
        LOG4CPLUS_ERROR(m_logger, "DateTimeHandler::SetTime(): Can't get current time from OXN.");
        text.clear();
    }
    TAVVALUE value;
    value.Deserialize(text);
    if (value.GetType() != TavValueType::Time) {
        LOG4CPLUS_ERROR(m_logger, "DateTimeHandler::SetTime(): Time from OXN has wrong ivt.");
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        TAVTIME time;
        time.Set(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count() / 1'000'000'000, true);
        value = time;
    }
    return value;
}

TAVTIME DscKnxAppPrg::DateTimeHandler::Merge(TAVTIME time, const std::vector<DateTimeEntry>& entries) {
    for (const DateTimeEntry& entry : entries) {
        if (HasDate(entry.kind)) {
            time.year = entry.time.year;
            time.month = entry.time.month;
            time.day = entry.time.day;
            time.SetWeekYearDay();
        }
        if (HasTime(entry.kind)) {
            time.hour = entry.time.hour;
            time.minute = entry.time.minute;
            time.second = entry.time.second;
        }
    }
    return time;
}

void DscKnxAppPrg::DateTimeHandler::SetTime() {
    std::unique_lock lock(m_mutex, std::defer_lock);
    if (!LockUnlessStopped(lock))
        return;
    m_timerArmed = false;
    if (m_entries.empty())
        return;
    const std::vector<DateTimeEntry> entries = std::move(m_entries);
    m_entries.clear();

    TAVVALUE value = CurrentTime();
    const TAVTIME current = value;
    const TAVTIME merged = Merge(current, entries);
    if (std::labs(static_cast<long>(merged) - static_cast<long>(current)) <= kToleranceSeconds)
        return;
    value = merged;
    LOG4CPLUS_INFO(m_logger, "DateTimeHandler::SetTime(): Consumed "
                                 << entries.size() << " entries to set the time to " << value.ToString());
    std::string text;
    value.Serialize(text, true);
    if (m_client)
        m_client->SetValue(kClockDataPoint, text, false, false);
}

void DscKnxAppPrg::DateTimeHandler::Exit() {
    const std::lock_guard lock(m_mutex);
    m_stopped = true;
    m_workGuard.reset();
    if (m_timerArmed) {
        m_timerArmed = false;
        m_timer.cancel();
    }
    if (m_thread.joinable()) {
        const boost::this_thread::disable_interruption whole;
        m_thread.join();
    }
}
