#include "Tav/tavDynamicLibraryLoader.h"

#include <dlfcn.h>
#include <unistd.h>

namespace {

thread_local std::string s_lastError;

// For a null result: takes over the system loader's words for it.
template <typename T>
T Checked(T result) {
    if (result == nullptr) {
        const auto* const text = dlerror();
        s_lastError = text != nullptr ? text : "";
    }
    return result;
}

// The file beside the library that this code is in; "" when there is none.
std::string FindBeside(const std::string& fileName) {
    Dl_info own{};
    const auto* const code = reinterpret_cast<const void*>(&tavDynamicLibraryLoader::tavLoadLibrary);
    if (dladdr(code, &own) == 0 || own.dli_fname == nullptr) {
        return {};
    }
    const std::string library = own.dli_fname;
    const auto path = library.substr(0, library.rfind('/') + 1) + fileName;
    return path.find('/') != std::string::npos && access(path.c_str(), F_OK) == 0 ? path : std::string();
}

} // namespace

void* tavDynamicLibraryLoader::tavLoadLibrary(const std::string& path) {
    if (path.empty()) {
        s_lastError = "no library is named"; // to dlopen "" is the program itself
        return nullptr;
    }
    if (auto* const handle = Checked(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)); handle != nullptr) {
        return handle;
    }
    // A bare name is looked for beside this library through its RUNPATH. Where somebody has put a dlopen of
    // their own before the system's, as sanitizers and profilers do, it is their RUNPATH that counts.
    if (path.find('/') == std::string::npos) {
        if (const auto beside = FindBeside(path); !beside.empty()) {
            return Checked(dlopen(beside.c_str(), RTLD_NOW | RTLD_LOCAL));
        }
    }
    return nullptr;
}

void* tavDynamicLibraryLoader::tavGetProcAddr(void* handle, const std::string& symbol) {
    if (handle == nullptr) {
        s_lastError = "no library is loaded"; // to dlsym null is everything the program has loaded
        return nullptr;
    }
    dlerror(); // a symbol may be null without an error; then none of before must answer for it
    return Checked(dlsym(handle, symbol.c_str()));
}

void tavDynamicLibraryLoader::tavFreeLibrary(void* handle) {
    if (handle != nullptr && dlclose(handle) != 0) {
        Checked(static_cast<void*>(nullptr));
    }
}

std::string tavDynamicLibraryLoader::tavGetLastError() {
    return s_lastError;
}
