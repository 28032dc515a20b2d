#include "ProgramTest.h"

#include <dlfcn.h>

#include <stdexcept>

const ProgramLibrary& ProgramLibrary::Get() {
    static const ProgramLibrary library = [] {
        void* const file = dlopen(KNX_PROGRAM_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        if (file == nullptr)
            throw std::runtime_error(dlerror());
        ProgramLibrary result{};
        result.create = reinterpret_cast<decltype(create)>(dlsym(file, "createApplicationProgram"));
        result.destroy = reinterpret_cast<decltype(destroy)>(dlsym(file, "deleteApplicationProgram"));
        result.version = reinterpret_cast<decltype(version)>(dlsym(file, "getKnxStackApiVersion"));
        if (result.create == nullptr || result.destroy == nullptr || result.version == nullptr)
            throw std::runtime_error("the library lacks one of its three functions");
        return result;
    }();
    return library;
}

ProgramTest::~ProgramTest() {
    if (!m_exited)
        program->Exit();
    if (program != nullptr)
        ProgramLibrary::Get().destroy(program);
}

void ProgramTest::Create() {
    program = ProgramLibrary::Get().create();
}

World::StartupState ProgramTest::Init() {
    m_exited = false;
    return program->Init(hub);
}

bool ProgramTest::Exit() {
    m_exited = true;
    return program->Exit();
}

void ProgramTest::Delete() {
    ProgramLibrary::Get().destroy(program);
    program = nullptr;
}

void ProgramTest::Forget() {
    m_exited = true;
    program = nullptr;
}

void ProgramTest::CreateAndInit() {
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    ASSERT_TRUE(recorder.WaitFor("DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread started."));
    recorder.Clear();
}

void ProgramTest::Start() {
    Create();
    ASSERT_EQ(Init(), StartupState::InProgress);
    ASSERT_TRUE(InitThreadFinished());
    recorder.Clear();
}

testing::AssertionResult ProgramTest::InitThreadFinished(std::size_t count) const {
    if (recorder.WaitFor("DEBUG KnxStack.DscKnxAppPrg | operator()(): Init thread finished.", count))
        return testing::AssertionSuccess();
    return TestSupport::IsTranscript(recorder.Lines(), "the init thread does not end");
}
