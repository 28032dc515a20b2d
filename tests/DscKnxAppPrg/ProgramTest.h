// Drives the built library from outside, as a KNX stack host does.
#pragma once

#include "World.h"

#include "KnxStack/IApplicationProgram.h"

#include <string>

/// The three exported functions of the built libdscknxappprg.so. The library stays loaded, as in a host.
struct ProgramLibrary {
    KnxStack::IApplicationProgram* (*create)();
    void (*destroy)(KnxStack::IApplicationProgram*);
    unsigned (*version)();

    static const ProgramLibrary& Get();
};

/// Fixture: one application program. What is still alive at the end is exited and deleted.
class ProgramTest : public World {
protected:
    ~ProgramTest() override;

    void Create();
    StartupState Init();
    bool Exit();
    void Delete();
    /// The program was deleted by the test itself.
    void Forget();

    /// Create() and Init(); the record then is empty.
    void CreateAndInit();

    /// CreateAndInit() and the rest of the start, up to the end of the init thread; the record then is empty.
    void Start();

    /// Waits for the end of the init thread, the `count`th in this process.
    testing::AssertionResult InitThreadFinished(std::size_t count = 1) const;

    KnxStack::IApplicationProgram* program = nullptr;

private:
    bool m_exited = true;
};
