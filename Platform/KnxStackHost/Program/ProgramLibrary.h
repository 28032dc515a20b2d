// The shared library of the application program.
#pragma once

#include <stdexcept>
#include <string>

namespace KnxStack {
class IApplicationProgram;
}

namespace KnxStackHost {

/// The functions of an application program's library. A library that was loaded stays loaded until the
/// process ends: threads of a former program object may still be inside.
struct ProgramLibrary {
    KnxStack::IApplicationProgram* (*create)() = nullptr;
    void (*destroy)(KnxStack::IApplicationProgram*) = nullptr;
};

/// A library that cannot be used; what() is a sentence that names it.
class ProgramLibraryError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Loads the library: an absolute path, or a bare file name that the platform's loader finds. Throws
/// ProgramLibraryError when it is missing, incomplete, or made for another version of the KNX stack
/// interface.
ProgramLibrary LoadProgramLibrary(const std::string& path);

} // namespace KnxStackHost
