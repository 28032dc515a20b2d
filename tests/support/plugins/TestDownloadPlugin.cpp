// A download handler plug-in that passes every question on to the test program, as TestPlugin.cpp does.
#include "TestPluginLibrary.h"
#include "TestPluginLink.h"

#include <functional>
#include <string>
#include <utility>

namespace {

class Handler : public Vesk::IKnxDownloadHandler {
public:
    explicit Handler(Vesk::IKnxDownloadHandler& answers) : m_answers(answers) {}

    bool Initialize() override {
        return Own([&] { return m_answers.Initialize(); });
    }
    bool CreateFileWithKnxData(const Vesk::KnxAppPrg::InterfaceObjectMap& interfaceObjects,
                               const KnxStack::BinaryData& data, std::function<void()> announce,
                               AppData appData,
                               const Vesk::KnxAppPrg::CoDescriptorDataMap& coDescriptors) override {
        return Own([&] {
            return m_answers.CreateFileWithKnxData(interfaceObjects, data, std::move(announce), appData,
                                                   coDescriptors);
        });
    }

private:
    Vesk::IKnxDownloadHandler& m_answers;
};

} // namespace

extern "C" {

TAV_EXPORT Vesk::IKnxDownloadHandler* CreateHandler(std::string& configFile) {
    Vesk::IKnxDownloadHandler* const answers = KnxTestDownloadPluginCreate(KNX_TEST_PLUGIN_NAME, configFile);
    return answers != nullptr ? new Handler(*answers) : nullptr;
}

TAV_EXPORT bool DeleteHandler(Vesk::IKnxDownloadHandler*& handler) {
    KnxTestDownloadPluginDelete(KNX_TEST_PLUGIN_NAME);
    delete handler;
    handler = nullptr;
    return true;
}
}
