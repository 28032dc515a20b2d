// The download handler plug-ins of one download.
#pragma once

#include "DynamicHandlers.h"
#include "Vesk/IKnxDownloadHandler.h"
#include "Vesk/KnxAppPrg.h"

#include <functional>

namespace KnxStack {
class BinaryData;
}

/// Loaded for one download and unloaded after it.
class DynamicKnxDownloadHandlers
    : public DynamicHandlers<Vesk::IKnxDownloadHandler, Vesk::IKnxDownloadHandler* (*)(std::string&),
                             bool (*)(Vesk::IKnxDownloadHandler*&)> {
public:
    /// Asks the plug-ins in the order of the registry until one has created the file; false when none has.
    /// Only the first one asked gets `announce`, all others get an empty function. Exceptions of plug-ins
    /// pass through.
    bool CreateFileWithKnxData(const Vesk::KnxAppPrg::InterfaceObjectMap& interfaceObjects,
                               const KnxStack::BinaryData& data, std::function<void()> announce,
                               Vesk::IKnxDownloadHandler::AppData appData,
                               const Vesk::KnxAppPrg::CoDescriptorDataMap& coDescriptors) const;
};
