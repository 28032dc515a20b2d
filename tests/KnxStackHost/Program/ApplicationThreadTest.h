// An application thread with a program that does what a test tells it.
#pragma once

#include "KnxStackHost/Program/ApplicationThread.h"

#include "../Fakes.h"
#include "KnxDevice/InterfaceObjects.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace KnxStackHost::ApplicationTesting {

using State = KnxStack::IApplicationProgram::StartupState;
using std::chrono::seconds;

inline constexpr seconds kPatience{20};

/// What happened on the application thread, in order.
class Journal {
public:
    void Add(std::string entry) {
        const std::lock_guard lock(m_mutex);
        m_entries.push_back(std::move(entry));
        m_threads.insert(std::this_thread::get_id());
        m_changed.notify_all();
    }
    /// Waits until there are `count` entries, and gives them.
    std::vector<std::string> Wait(std::size_t count) {
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, kPatience, [&] { return m_entries.size() >= count; });
        return m_entries;
    }
    std::size_t Threads() {
        const std::lock_guard lock(m_mutex);
        return m_threads.size();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::string> m_entries;
    std::set<std::thread::id> m_threads;
};

/// Behaviour of the next programs; the C functions of a library have no other way to know it.
struct Script {
    Journal* journal = nullptr;
    std::function<State(KnxStack::IApiHub&)> init;
    std::function<State(KnxStack::IApiHub&)> restart;
    std::function<void(int)> inCallback;
    std::function<bool()> exit;
};
inline Script s_script;

class ScriptedProgram final : public KnxStack::IApplicationProgram, private KnxStack::IGroupValueUser {
public:
    State Init(KnxStack::IApiHub& hub) override {
        s_script.journal->Add("init");
        m_hub = &hub;
        hub.GetGroupValueService()->RegisterGroupValueUser(this);
        return s_script.init(hub);
    }
    State OnDeviceRestart() override {
        s_script.journal->Add(m_hub->IsDeviceRestartPending() ? "restart, pending" : "restart");
        return s_script.restart(*m_hub);
    }
    bool Exit() override {
        s_script.journal->Add("exit");
        if (s_script.exit)
            return s_script.exit();
        m_hub->GetGroupValueService()->RegisterGroupValueUser(nullptr);
        return true;
    }

private:
    void OnGroupValueWrite(int co, const KnxStack::GroupValue& value) override {
        s_script.journal->Add("write " + std::to_string(co) + " " + value.GetRawData().ToString());
        if (s_script.inCallback)
            s_script.inCallback(co);
    }
    void OnGroupValueResponse(int, const KnxStack::GroupValue&) override {}
    bool OnGroupValueRead(int, KnxStack::GroupValue&) override { return false; }

    KnxStack::IApiHub* m_hub = nullptr;
};

inline KnxStack::IApplicationProgram* Create() {
    s_script.journal->Add("create");
    return new ScriptedProgram;
}

inline void Destroy(KnxStack::IApplicationProgram* program) {
    s_script.journal->Add("delete");
    delete program;
}

inline State RunAtOnce(KnxStack::IApiHub& hub) {
    hub.OnApplicationProgramStartupStateChanged(State::InProgress);
    hub.OnApplicationProgramStartupStateChanged(State::Running);
    return State::InProgress;
}

inline State ReportLater(KnxStack::IApiHub&) {
    return State::InProgress;
}

class Application : public testing::Test, protected ReloadSource {
protected:
    Application() { s_script = {&m_journal, RunAtOnce, RunAtOnce, {}, {}}; }
    void TearDown() override { m_thread.reset(); } // it calls what a destructor would change

    void Start(bool restartPending = false) {
        m_thread = std::make_unique<ApplicationThread>(
            ProgramLibrary{Create, Destroy}, DeviceServices{m_service, m_interfaceObjects, m_downloaded},
            ApiHub::Settings{{"key", "value"}}, static_cast<ReloadSource&>(*this),
            [this] { m_journal.Add("ended"); });
        m_thread->Start(restartPending);
    }

    bool Read(Scope scope) override {
        m_journal.Add((m_readable ? "read " : "unreadable ") + NameOf(scope));
        return m_readable;
    }
    bool ChangesGroupObjects() const override { return m_otherObjects; }
    void Apply(Scope scope) override {
        m_journal.Add("apply " + NameOf(scope));
        if (m_inApply)
            m_inApply();
    }
    void OnRestartFinished() override { m_journal.Add("restart finished"); }
    void OnProgramRunning() override { ++m_runs; }

    static std::string NameOf(Scope scope) { return scope == Scope::Device ? "device" : "everything"; }

    Journal m_journal;
    KnxDevice::GroupObjects m_objects{TestTable()};
    FakeOutlet m_outlet;
    GroupValueService m_service{m_objects, m_outlet};
    KnxDevice::InterfaceObjects m_interfaceObjects;
    KnxDevice::DownloadedData m_downloaded{{1, 2}, {3}};
    std::atomic<int> m_runs{0};
    std::atomic<bool> m_readable{true};
    std::atomic<bool> m_otherObjects{false};
    std::function<void()> m_inApply;

    // For the program of a test, which may live longer than the test's body.
    std::promise<void> m_entered;
    std::promise<void> m_leave;
    std::atomic<int> m_starts{0};
    std::atomic<bool> m_first{true};

    std::unique_ptr<ApplicationThread> m_thread;
};

} // namespace KnxStackHost::ApplicationTesting
