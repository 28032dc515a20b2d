// Memory of an application program as ETS loaded it.
#pragma once

namespace KnxStack {

class BinaryData;

/// Read access to the memory block of application program 1 ("AppPrg1 Memory").
class IApplicationProgramMemory {
public:
    virtual ~IApplicationProgramMemory() = default;

    /// The whole block, lowest address first. An unchanging snapshot: the reference is valid until the next
    /// OnDeviceRestart, which replaces it, or until the program is deleted. Any thread.
    virtual const BinaryData& GetData() const = 0;
};

} // namespace KnxStack
