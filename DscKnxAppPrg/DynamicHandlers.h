// Loads the handler plug-ins that the registry file names.
#pragma once

#include "Tav/tavDynamicLibraryLoader.h"

#include <boost/system/system_error.hpp>
#include <boost/thread/exceptions.hpp>

#include <exception>
#include <list>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

/// What "knxappprghandlers.xml" says of one plug-in.
struct RegisteredHandler {
    std::string libraryPath; ///< "Library", as the platform's loader takes it
    std::string configFile;  ///< "ConfigFile"; empty when absent
};

/// Reads "knxappprghandlers.xml" in `directory` and returns the plug-ins that it lists for the application
/// program `name`, in document order; for an empty name those of all programs. A missing directory, a missing
/// file and a malformed file list nothing. Throws boost::filesystem::filesystem_error when the directory's
/// status cannot be determined for another reason than absence.
std::vector<RegisteredHandler> ReadHandlerRegistry(const std::string& directory, const std::string& name);

/// The result of a call into plug-ins. What they throw comes out as a std::runtime_error with the same text:
/// the type of their exception may be gone with its library before it is caught. An interruption of the
/// thread passes through.
template <typename Call>
auto WithOwnExceptions(const Call& call) {
    std::string text;
    try {
        return call();
    } catch (const boost::thread_interrupted&) {
        throw;
    } catch (const boost::system::system_error& error) {
        text = error.code().message(); // without the paths that a text of the file system names
    } catch (const std::exception& error) {
        text = error.what();
    } catch (...) {
        text = "unknown exception of a handler plug-in";
    }
    throw std::runtime_error(text);
}

/// A set of plug-ins, each a shared library with one handler object, in the order of the registry files.
/// `CreateFn` is `Interface* (*)(std::string&)`, `DeleteFn` is `bool (*)(Interface*&)`. The set has no lock:
/// Init and destruction must not overlap with any use of the handlers.
template <typename Interface, typename CreateFn, typename DeleteFn>
class DynamicHandlers {
public:
    /// One plug-in. A plug-in that declined keeps its place with a null handle and a null handler.
    struct Library {
        std::string libraryPath;
        std::string configFile;
        void* handle = nullptr;
        Interface* handler = nullptr;
    };

    DynamicHandlers() = default;
    DynamicHandlers(const DynamicHandlers&) = delete;
    DynamicHandlers& operator=(const DynamicHandlers&) = delete;

    /// Unloads every plug-in, front to back.
    ~DynamicHandlers() { Clear(); }

    /// Replaces the set by the plug-ins that the registry files in the two directories list under `name`, the
    /// first directory's before the second's. True when each was started or declined, or when none is listed;
    /// otherwise false, and the set is empty. Throws what ReadHandlerRegistry throws.
    bool Init(const std::string& firstDirectory, const std::string& secondDirectory, const std::string& name);

protected:
    const std::list<Library>& Libraries() const { return m_libraries; }

private:
    void Clear();
    void AppendRegistered(const std::string& directory, const std::string& name);
    static bool Load(Library& library);
    static void Unload(Library& library);

    std::list<Library> m_libraries;
};

template <typename Interface, typename CreateFn, typename DeleteFn>
bool DynamicHandlers<Interface, CreateFn, DeleteFn>::Init(const std::string& firstDirectory,
                                                          const std::string& secondDirectory,
                                                          const std::string& name) {
    Clear();
    AppendRegistered(firstDirectory, name);
    AppendRegistered(secondDirectory, name);
    for (Library& library : m_libraries) {
        if (!Load(library)) {
            Clear();
            return false;
        }
    }
    return true;
}

template <typename Interface, typename CreateFn, typename DeleteFn>
void DynamicHandlers<Interface, CreateFn, DeleteFn>::Clear() {
    for (Library& library : m_libraries)
        Unload(library);
    m_libraries.clear();
}

template <typename Interface, typename CreateFn, typename DeleteFn>
void DynamicHandlers<Interface, CreateFn, DeleteFn>::AppendRegistered(const std::string& directory,
                                                                      const std::string& name) {
    for (RegisteredHandler& registered : ReadHandlerRegistry(directory, name))
        m_libraries.push_back({std::move(registered.libraryPath), std::move(registered.configFile)});
}

template <typename Interface, typename CreateFn, typename DeleteFn>
bool DynamicHandlers<Interface, CreateFn, DeleteFn>::Load(Library& library) {
    Unload(library);
    if (library.libraryPath.empty())
        return false;
    library.handle = tavDynamicLibraryLoader::tavLoadLibrary(library.libraryPath);
    if (library.handle == nullptr)
        return false;
    const auto create =
        reinterpret_cast<CreateFn>(tavDynamicLibraryLoader::tavGetProcAddr(library.handle, "CreateHandler"));
    if (create != nullptr)
        library.handler = create(library.configFile);
    if (library.handler == nullptr) {
        tavDynamicLibraryLoader::tavFreeLibrary(library.handle);
        library.handle = nullptr;
        return create != nullptr; // a plug-in may decline; one that cannot make a handler at all is broken
    }
    return library.handler->Initialize();
}

template <typename Interface, typename CreateFn, typename DeleteFn>
void DynamicHandlers<Interface, CreateFn, DeleteFn>::Unload(Library& library) {
    if (library.handle == nullptr)
        return;
    const auto destroy =
        reinterpret_cast<DeleteFn>(tavDynamicLibraryLoader::tavGetProcAddr(library.handle, "DeleteHandler"));
    if (destroy != nullptr) { // without it the handler stays: only its own library knows how to destroy it
        Interface* handler = std::exchange(library.handler, nullptr);
        try {
            destroy(handler);
        } catch (...) {
            // Whatever goes wrong in there, the others are still to be unloaded, and nobody looks at the
            // result.
        }
    }
    tavDynamicLibraryLoader::tavFreeLibrary(library.handle);
    library.handle = nullptr;
}
