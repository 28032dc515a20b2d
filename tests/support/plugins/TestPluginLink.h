// What a test plug-in's library finds in the test program that loads it.
#pragma once

#include "Tav/Export.h"
#include "Vesk/IKnxAppPrgHandler.h"
#include "Vesk/IKnxDownloadHandler.h"

#include <string>

extern "C" {

/// The answers of the plug-in in the library; null when it declines.
TAV_EXPORT Vesk::IKnxAppPrgHandler* KnxTestPluginCreate(const char* library, std::string& configFile);
TAV_EXPORT void KnxTestPluginDelete(const char* library);

/// The same for a download handler.
TAV_EXPORT Vesk::IKnxDownloadHandler* KnxTestDownloadPluginCreate(const char* library,
                                                                  std::string& configFile);
TAV_EXPORT void KnxTestDownloadPluginDelete(const char* library);

/// The library was "loaded" or is being "unloaded".
TAV_EXPORT void KnxTestLibraryEvent(const char* library, const char* event);
}
