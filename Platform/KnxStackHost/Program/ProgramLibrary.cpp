#include "KnxStackHost/Program/ProgramLibrary.h"

#include "KnxStack/IApplicationProgram.h"
#include "Tav/tavDynamicLibraryLoader.h"

#include <fmt/format.h>

namespace KnxStackHost {

namespace {

template <class Function>
Function Find(void* library, const std::string& path, const char* symbol) {
    auto* const address = tavDynamicLibraryLoader::tavGetProcAddr(library, symbol);
    if (address == nullptr)
        throw ProgramLibraryError(
            fmt::format("{}: is no application program: it does not export {}", path, symbol));
    return reinterpret_cast<Function>(address);
}

} // namespace

ProgramLibrary LoadProgramLibrary(const std::string& path) {
    void* const library = tavDynamicLibraryLoader::tavLoadLibrary(path);
    if (library == nullptr)
        throw ProgramLibraryError(fmt::format("{}: the application program cannot be loaded: {}", path,
                                              tavDynamicLibraryLoader::tavGetLastError()));
    const auto version = Find<unsigned (*)()>(library, path, "getKnxStackApiVersion")();
    if (version != KnxStack::IApplicationProgram::kApiVersion)
        throw ProgramLibraryError(
            fmt::format("{}: was made for version {} of the KNX stack interface, this host has version {}",
                        path, version, KnxStack::IApplicationProgram::kApiVersion));
    return {Find<decltype(ProgramLibrary::create)>(library, path, "createApplicationProgram"),
            Find<decltype(ProgramLibrary::destroy)>(library, path, "deleteApplicationProgram")};
}

} // namespace KnxStackHost
