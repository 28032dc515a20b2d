// Faults that a fake injects on request.
#pragma once

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <string_view>

namespace TestSupport {

class Recorder;

/// What Faults::Throw makes an operation throw.
class InjectedFault : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A place where threads wait until the test lets them go on.
class Gate {
public:
    /// Waits until the gate is open. Not an interruption point itself; see InterruptionPoint.
    void Pass();

    /// Lets everybody through, now and later.
    void Open();

    /// Waits until somebody has arrived. False when nobody comes within Recorder::kPatience.
    bool WaitForArrival();

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_open = false;
    bool m_arrived = false;
};

/// The switch on an outgoing interface: each operation, known by its name, may be made to refuse, to throw or
/// to hang. Any thread. Gates that are still shut open when the object dies.
class Faults {
public:
    ~Faults();

    /// The operation has its failure result from now on.
    void Refuse(const std::string& operation);

    /// The operation throws InjectedFault(text) from now on.
    void Throw(const std::string& operation, const std::string& text);

    /// The operation hangs until the gate is opened.
    std::shared_ptr<Gate> Block(const std::string& operation);

    /// The operation works again; nobody new arrives at its gate.
    void Mend(const std::string& operation);

    /// For the fake, at the start of each operation: hangs or throws as asked for. False = refuse.
    bool Enter(std::string_view operation);

private:
    struct Fault {
        bool refuse = false;
        std::string text; // not empty = throw
        std::shared_ptr<Gate> gate;
    };

    Fault& Set(const std::string& operation);

    // Without faults no lock is taken, so that a fake puts no order between threads that have none of their
    // own.
    std::atomic<bool> m_any = false;
    std::mutex m_mutex;
    std::map<std::string, Fault, std::less<>> m_faults; // under m_mutex
};

/// For the fakes of calls that may wait in reality, after Faults::Enter: ends the call there by an
/// interruption of its thread, unless the caller has interruption disabled. Recorded as "<who> <operation>
/// interrupted".
void InterruptionPoint(Recorder& recorder, const char* who, const char* operation);

} // namespace TestSupport
