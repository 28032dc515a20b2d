#include "Faults.h"

#include "Recorder.h"

#include <boost/thread/thread.hpp>

namespace TestSupport {

void Gate::Pass() {
    std::unique_lock lock(m_mutex);
    m_arrived = true;
    m_changed.notify_all();
    m_changed.wait(lock, [this] { return m_open; });
}

void Gate::Open() {
    const std::lock_guard lock(m_mutex);
    m_open = true;
    m_changed.notify_all();
}

bool Gate::WaitForArrival() {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, Recorder::kPatience, [this] { return m_arrived; });
}

Faults::~Faults() {
    for (const auto& [operation, fault] : m_faults) {
        if (fault.gate)
            fault.gate->Open();
    }
}

Faults::Fault& Faults::Set(const std::string& operation) {
    m_any.store(true, std::memory_order_relaxed);
    return m_faults[operation];
}

void Faults::Refuse(const std::string& operation) {
    const std::lock_guard lock(m_mutex);
    Set(operation).refuse = true;
}

void Faults::Throw(const std::string& operation, const std::string& text) {
    const std::lock_guard lock(m_mutex);
    Set(operation).text = text;
}

std::shared_ptr<Gate> Faults::Block(const std::string& operation) {
    const std::lock_guard lock(m_mutex);
    return Set(operation).gate = std::make_shared<Gate>();
}

void Faults::Mend(const std::string& operation) {
    const std::lock_guard lock(m_mutex);
    m_faults.erase(operation);
}

bool Faults::Enter(std::string_view operation) {
    if (!m_any.load(std::memory_order_relaxed))
        return true;
    Fault fault;
    {
        const std::lock_guard lock(m_mutex);
        if (const auto known = m_faults.find(operation); known != m_faults.end())
            fault = known->second;
    }
    if (fault.gate)
        fault.gate->Pass();
    if (!fault.text.empty())
        throw InjectedFault(fault.text);
    return !fault.refuse;
}

void InterruptionPoint(Recorder& recorder, const char* who, const char* operation) {
    try {
        boost::this_thread::interruption_point();
    } catch (const boost::thread_interrupted&) {
        recorder.Add(std::string(who) + " " + operation + " interrupted");
        throw;
    }
}

} // namespace TestSupport
