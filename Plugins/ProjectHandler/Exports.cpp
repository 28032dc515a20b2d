// What the library shows.
#include "ProjectHandler.h"
#include "Tav/Export.h"

#include <log4cplus/loggingmacros.h>

#include <exception>

extern "C" {

/// A new handler for the project file, to be given back to DeleteHandler(); the file is read by Initialize().
/// Null only when there is no memory or no working directory.
TAV_EXPORT Vesk::IKnxAppPrgHandler* CreateHandler(std::string& configFile) {
    try {
        return new ProjectHandler(configFile);
    } catch (const std::exception& error) {
        LOG4CPLUS_ERROR(log4cplus::Logger::getInstance("KnxStack.ProjectHandler"),
                        "CreateHandler(): No handler for " << configFile << ": " << error.what());
        return nullptr;
    }
}

/// Destroys the handler and clears the pointer. Null is allowed.
TAV_EXPORT bool DeleteHandler(Vesk::IKnxAppPrgHandler*& handler) {
    delete handler;
    handler = nullptr;
    return true;
}
}
