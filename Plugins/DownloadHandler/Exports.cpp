// What the library shows.
#include "DownloadHandler.h"
#include "Tav/Export.h"

#include <log4cplus/loggingmacros.h>

#include <exception>

extern "C" {

/// A new handler for downloads, to be given back to DeleteHandler(); its configuration is read by
/// Initialize(). Null only when there is no memory or no working directory.
TAV_EXPORT Vesk::IKnxDownloadHandler* CreateHandler(std::string& configFile) {
    try {
        return new DownloadHandler(configFile);
    } catch (const std::exception& error) {
        LOG4CPLUS_ERROR(log4cplus::Logger::getInstance("KnxStack.DownloadHandler"),
                        "CreateHandler(): No handler for " << configFile << ": " << error.what());
        return nullptr;
    }
}

/// Destroys the handler and clears the pointer. Null is allowed.
TAV_EXPORT bool DeleteHandler(Vesk::IKnxDownloadHandler*& handler) {
    delete handler;
    handler = nullptr;
    return true;
}
}
