// Fixture for the group address translation of a whole application program.
#pragma once

#include "ProgramTest.h"

#include <string>
#include <vector>

/// COs 10 to 20 go to the application instance 5. Switch 500 is on CO 5, and on CO 12, where no telegram may
/// look for it.
class TranslationTest : public ProgramTest {
protected:
    TranslationTest() {
        plugins["A"].bindings = {{.co = 5, .id = 500, .dpt = {1, 0, 1, 1}},
                                 {.co = 12, .id = 500, .dpt = {1, 0, 1, 1}}};
        plugins["A"].translationRange = {10, 20};
        service.objects[5] = TestSupport::FakeGroupObject(1);
        for (std::uint16_t co = 10; co <= 20; ++co)
            service.objects[co] = TestSupport::FakeGroupObject(16);
        service.objects[12] = TestSupport::FakeGroupObject(1);
        hub.settings["GroupAddressTranslationTargetId"] = "5";
        RegisterPlugins({"A"});
    }

    static std::string Sent(const std::string& message, const std::string& target = "5") {
        return R"(client Command({"command":"EmitEvent","eventType":"application",)"
               R"("to":"DscKnxAppPrg::field::)" +
               target + R"(","message":")" + message + "\"})";
    }

    /// The answer to an application event of another application program.
    bool Receive(const std::string& message, const std::string& sender = "DscKnxAppPrg") {
        return stack.ApplicationEvent(sender, message).get();
    }

    std::vector<std::string> Settings() const {
        std::vector<std::string> lines;
        for (const std::string& line : recorder.LinesOf("host")) {
            if (line.starts_with("INFO KnxStack.DscKnxAppPrg | Init(): ") &&
                line.find(" = ") != std::string::npos)
                lines.push_back(line);
        }
        return lines;
    }
};
