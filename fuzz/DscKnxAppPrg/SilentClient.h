// A device stack client without a device stack, for fuzz targets.
#pragma once

#include "Vesk/IDeviceStackClient.h"

#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>

#include <map>
#include <string>

namespace Fuzz {

/// Everything fails at once, nothing calls back. A target overrides what it plays.
class SilentClient : public Vesk::IDeviceStackClient {
public:
    void SetClientMode(int) override {}
    void InstallEventHandler(IEventHandler*, void*) override {}
    void InstallResponseHandler(IResponseHandler*, void*) override {}
    void InstallFieldHandler(IFieldHandlerWithUrn*, void*) override {}
    bool RegisterApplication(const std::string&, const std::string&, const std::string&) override {
        return true;
    }
    void SetValueFormat(const std::string&) override {}
    std::string Command(const std::string&) override { return {}; }
    bool Command(const std::string&, std::string&, int) override { return false; }
    bool GetConfiguration(int, std::string&) override { return false; }
    void SetConfiguration(const std::map<std::string, std::string>&) override {}
    std::string SetValue(TAVOBJECTID, const std::string&, bool, bool) override { return {}; }
    bool GetValue(TAVOBJECTID, std::string&, bool) override { return false; }
    std::string GetValueRequest(TAVOBJECTID, int) override { return {}; }
    std::string GetUrn(TAVOBJECTID, int) override { return {}; }
    TAVOBJECTID GetId(const std::string&) override { return 0; }
    std::string GetLastError() override { return {}; }
};

/// Log texts are made, and go nowhere.
inline void LogToNowhere() {
    log4cplus::Logger root = log4cplus::Logger::getRoot();
    root.removeAllAppenders();
    root.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
}

} // namespace Fuzz
