// Memory of an application program as ETS loaded it.
#pragma once

namespace KnxStack {

class BinaryData;

/// Read access to the memory block of application program 1 ("AppPrg1 Memory").
class IApplicationProgramMemory {
public:
    virtual ~IApplicationProgramMemory() = default;

    /// The whole block, lowest address first; empty before the first download. An unchanging snapshot: a
    /// download puts another one in its place before it calls OnDeviceRestart, but the reference stays valid
    /// to the end of the process, for a start that could not be stopped, inside a plug-in, may still read it.
    /// Any thread.
    virtual const BinaryData& GetData() const = 0;
};

} // namespace KnxStack
