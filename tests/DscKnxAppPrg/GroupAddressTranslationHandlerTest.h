// Fixture for the group address translation on its own.
#pragma once

#include "GroupAddressTranslationHandler.h"
#include "World.h"

#include <memory>
#include <string>

/// A handler that sends to the application instance 5.
class TranslationHandlerTest : public World {
protected:
    using EventType = GroupAddressTranslationHandler::EventType;

    TranslationHandlerTest() {
        handler.SetTargetName("DscKnxAppPrg::field::5");
        handler.Init(client.get(), &service);
        recorder.Clear();
    }

    /// What the client is asked for when the message is sent.
    static std::string Sent(const std::string& message) {
        return R"(client Command({"command":"EmitEvent","eventType":"application",)"
               R"("to":"DscKnxAppPrg::field::5","message":")" +
               message + "\"})";
    }

    std::unique_ptr<Vesk::IDeviceStackClient> client = Vesk::CreateDeviceStackClient();
    GroupAddressTranslationHandler handler;
};
