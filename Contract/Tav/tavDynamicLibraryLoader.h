// Loads shared libraries.
#pragma once

#include "Tav/Export.h"

#include <string>

/// The loader of the base platform. Any thread.
struct TAV_EXPORT tavDynamicLibraryLoader {
    /// Loads the library: a path, or a bare file name that is looked for beside the platform's own libraries
    /// and in the system's places. An opaque handle to be given to tavFreeLibrary(), or null. All its
    /// undefined symbols are bound at once, so that an incomplete library fails here and not in the middle of
    /// a telegram; its own symbols serve no other library.
    static void* tavLoadLibrary(const std::string& path);

    /// The address of an exported symbol; null when there is none or `handle` is null.
    static void* tavGetProcAddr(void* handle, const std::string& symbol);

    /// Unloads the library once nobody else holds it. Null is allowed.
    static void tavFreeLibrary(void* handle);

    /// The system loader's own words for the last failure on the calling thread, which a later success does
    /// not take back; "" when there was none.
    static std::string tavGetLastError();
};
