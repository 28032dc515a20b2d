#include "DynamicKnxDownloadHandlers.h"

#include <utility>

bool DynamicKnxDownloadHandlers::CreateFileWithKnxData(
    const Vesk::KnxAppPrg::InterfaceObjectMap& interfaceObjects, const KnxStack::BinaryData& data,
    std::function<void()> announce, Vesk::IKnxDownloadHandler::AppData appData,
    const Vesk::KnxAppPrg::CoDescriptorDataMap& coDescriptors) const {
    for (const Library& library : Libraries()) {
        if (library.handler != nullptr &&
            library.handler->CreateFileWithKnxData(interfaceObjects, data, std::exchange(announce, nullptr),
                                                   appData, coDescriptors))
            return true;
    }
    return false;
}
