// Many threads on one program, for the thread sanitizer. Nothing is logged or recorded meanwhile: both would
// put an order between threads that have none of their own.
#include "ProgramTest.h"

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using TestSupport::Bits;

/// Runs loops on threads of their own until it is stopped.
class Crowd {
public:
    explicit Crowd(std::vector<std::function<void()>> loops) {
        for (auto& loop : loops) {
            m_threads.emplace_back([this, loop = std::move(loop)] {
                while (!m_stop.load(std::memory_order_relaxed)) {
                    loop();
                    m_rounds.fetch_add(1, std::memory_order_relaxed);
                    std::this_thread::yield();
                }
            });
        }
    }
    ~Crowd() { Stop(); }

    void Stop() {
        m_stop.store(true, std::memory_order_relaxed);
        for (std::thread& thread : m_threads)
            thread.join();
        m_threads.clear();
    }

    unsigned Rounds() const { return m_rounds.load(std::memory_order_relaxed); }

private:
    std::atomic<bool> m_stop = false;
    std::atomic<unsigned> m_rounds = 0;
    std::vector<std::thread> m_threads;
};

class StressTest : public ProgramTest {
protected:
    StressTest() {
        auto& bindings = plugins["A"].bindings;
        for (std::uint16_t co = 1; co <= 20; ++co) {
            const std::uint32_t id = 2000u + co;
            const std::string name = "point" + std::to_string(co);
            bindings.push_back({.co = co, .id = id, .dpt = {1, 0, 1, 1}, .urn = name, .eventing = true});
            service.objects[co] = TestSupport::FakeGroupObject(1);
            stack.urns[id] = "urn:oxn:dp:house:" + name;
            stack.values[id] = "1";
        }
        stack.urns[1000] = "urn:oxn:dp:house";
        plugins["A"].useUrns = true;
        RegisterPlugins({"A"});
        TestSupport::LogRecorder::Silence();
        recorder.Pause();
    }

    std::uint32_t NextId() { return 2001u + m_next.fetch_add(1, std::memory_order_relaxed) % 20; }
    int NextCo() { return static_cast<int>(NextId() - 2000); }

    /// What a bus and a device stack do at the same time.
    std::vector<std::function<void()>> Traffic() {
        return {
            [this] { service.Write(NextCo(), Bits(1, 1)); },
            [this] { service.Read(NextCo()); },
            [this] { service.Response(NextCo(), Bits(1, 0)); },
            [this] {
                const std::uint32_t id = NextId();
                stack.ValueChanged(id, stack.urns.at(id), "1").get();
            },
            [this] { stack.WriteValue(NextId(), "0", "").get(); },
            [this] { stack.ReadValue(NextId(), "").get(); },
        };
    }

private:
    std::atomic<unsigned> m_next = 0;
};

TEST_F(StressTest, TelegramsDuringAStartAndARestart) {
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    Crowd crowd(Traffic());
    std::this_thread::sleep_for(std::chrono::milliseconds(2500)); // over the whole start
    EXPECT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    crowd.Stop();
    EXPECT_GT(crowd.Rounds(), 100u);
    EXPECT_TRUE(Exit());
}

TEST_F(StressTest, CallbacksOfTheClientFromTheRegistrationOn) {
    // A device stack that asks at once: while Init is still at work on the host's thread.
    Create();
    std::atomic<bool> connected = false;
    Crowd crowd({[&] {
        if (stack.EventContext() == nullptr)
            return;
        connected = true;
        stack.WriteValue(NextId(), "0", "").get();
        stack.ReadValue(NextId(), "").get();
    }});
    EXPECT_EQ(Init(), StartupState::InProgress);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    crowd.Stop();
    EXPECT_TRUE(connected);
    EXPECT_TRUE(Exit());
}

TEST_F(StressTest, ExitWithTelegramsAndCallbacksUnderway) {
    for (int round = 0; round != 3; ++round) {
        Create();
        ASSERT_EQ(Init(), StartupState::InProgress);
        Crowd bus({[this] { service.Write(NextCo(), Bits(1, 1)); }, [this] { service.Read(NextCo()); }});
        std::vector<std::future<bool>> callbacks;
        for (int count = 0; count != 200; ++count)
            callbacks.push_back(stack.WriteValue(NextId(), "1", ""));
        EXPECT_TRUE(Exit());
        bus.Stop();
        for (auto& callback : callbacks)
            callback.get(); // the client let every callback end
        Delete();
    }
}

TEST_F(StressTest, ExitOverALateStartThread) {
    // The start hangs in a plug-in beyond Exit, and goes on while the client is taken away.
    const auto gate = plugins["A"].faults.Block("GetCOFromID");
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    ASSERT_TRUE(gate->WaitForArrival());
    std::thread opener([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(5300)); // the stop of the start takes 5 s
        gate->Open();
    });
    EXPECT_TRUE(Exit());
    opener.join();
    Delete();
}

/// A program with a translation range, whose downloads announce changes one after the other.
class ChangeStressTest : public StressTest {
protected:
    ChangeStressTest() {
        plugins["A"].translationRange = {1, 5};
        plugins.Download("DownloadA").announcements = 200;
        plugins.Download("DownloadA").creates = true;
        RegisterDownloadHandlers({"DownloadA"});
        hub.settings = {{"GroupAddressTranslationTargetId", "KNX2"}};
    }

    /// Four threads: the bus, the field side of the device stack, another application, and its projects.
    std::vector<std::function<void()>> FourThreads() {
        return {
            [this] {
                service.Write(NextCo(), Bits(1, 1));
                service.Read(NextCo());
                service.Response(NextCo(), Bits(1, 0));
            },
            [this] {
                const std::uint32_t id = NextId();
                IfConnected([&] { stack.ValueChanged(id, stack.urns.at(id), "1").get(); });
                IfConnected([&] { stack.WriteValue(id, "0", "").get(); });
                IfConnected([&] { stack.ReadValue(id, "").get(); });
            },
            [this] {
                IfConnected([&] { stack.ApplicationEvent("DscKnxAppPrg", "!00030101").get(); });
                IfConnected([&] { stack.ApplicationEvent("DscKnxAppPrg", "?0004").get(); });
            },
            [this] { IfConnected([&] { stack.ConfigurationChanged("Project", "").get(); }); },
        };
    }

private:
    /// Before the registration and after Exit there is no client that could call back.
    template <typename Callback>
    static void IfConnected(const Callback& callback) {
        try {
            callback();
        } catch (const std::logic_error&) {
        }
    }
};

TEST_F(ChangeStressTest, FourThreadsDuringStartRestartAndExit) {
    Create();
    Crowd crowd(FourThreads());
    ASSERT_EQ(Init(), StartupState::InProgress);
    std::this_thread::sleep_for(std::chrono::milliseconds(2500)); // over the whole start
    EXPECT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
    std::this_thread::sleep_for(
        std::chrono::milliseconds(4000)); // over the download and the changes after it
    EXPECT_TRUE(Exit());
    crowd.Stop();
    EXPECT_GT(crowd.Rounds(), 100u);
    Delete();
}

TEST_F(ChangeStressTest, ExitAndDeleteWhileChangesAreFinished) {
    for (int round = 0; round != 3; ++round) {
        Create();
        ASSERT_EQ(Init(), StartupState::InProgress);
        ASSERT_EQ(program->OnDeviceRestart(), StartupState::InProgress);
        Crowd crowd(FourThreads());
        std::this_thread::sleep_for(std::chrono::milliseconds(2050 + 50 * round)); // into the download
        EXPECT_TRUE(Exit());
        Delete();
        crowd.Stop();
    }
}

TEST_F(StressTest, ManyProgramsAtOnce) {
    // Each with a host of its own; they share the device stack's process, the plug-in and the logging.
    const auto life = [this] {
        TestSupport::FakeHub own(recorder);
        TestSupport::FakePropertyService objects(recorder);
        own.propertyService = &objects;
        KnxStack::IApplicationProgram* const one = ProgramLibrary::Get().create();
        EXPECT_EQ(one->Init(own), StartupState::InProgress);
        EXPECT_EQ(one->OnDeviceRestart(), StartupState::InProgress);
        EXPECT_TRUE(one->Exit());
        ProgramLibrary::Get().destroy(one);
    };
    std::vector<std::thread> hosts;
    for (int host = 0; host != 16; ++host)
        hosts.emplace_back(life);
    for (std::thread& host : hosts)
        host.join();
}

} // namespace
