// The questions to the application program's handler plug-ins, and who holds the plug-ins.
#pragma once

#include "DynamicHandlers.h"
#include "Vesk/IKnxAppPrgHandler.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

/// Asks the loaded plug-ins in the order of the registry; the first answer that is not a question's no-answer
/// value counts. Out-parameters are handed to every plug-in asked, so they hold what the last one left there.
/// Exceptions of plug-ins pass through. Without plug-ins every question has its no-answer value.
class DynamicKnxAppPrgHandlers
    : public DynamicHandlers<Vesk::IKnxAppPrgHandler, Vesk::IKnxAppPrgHandler* (*)(std::string&),
                             bool (*)(Vesk::IKnxAppPrgHandler*&)> {
public:
    std::uint32_t GetIDFromCO(std::uint16_t co, KNXDPT& dpt) const;
    std::string GetUrnFromCO(std::uint16_t co, KNXDPT& dpt) const;
    std::uint16_t GetCOFromID(std::uint32_t id, bool reading, KNXDPT& dpt) const;
    std::uint16_t GetCOFromUrn(const std::string& urn, bool reading, KNXDPT& dpt) const;
    bool IsKnxEventDataPoint(std::uint32_t id) const;
    bool IsKnxEventDataPoint(const std::string& urn) const;
    bool IsOxnReadInternalDataPoint(std::uint32_t id) const;
    bool IsOxnReadInternalDataPoint(const std::string& urn) const;
    std::uint16_t GetTimeCoByIndex(std::uint32_t index, bool writing, KNXDPT& dpt) const;
    std::uint32_t GetInterfaceObjectId() const;
    std::uint32_t GetPropertyByIndex(std::uint32_t index, std::uint8_t& dataType, std::string& name,
                                     std::uint16_t& elementCount) const;
    std::uint32_t GetExtendedInterfaceObjectType() const;
    std::vector<Vesk::KnxAppPrg::ExtendedProperty> GetExtendedProperties() const;

    /// First and last CO. The first pair without a zero; when there is none, the pair of the last plug-in
    /// asked, whatever it is: an incomplete range is passed on as it was given.
    std::pair<std::uint16_t, std::uint16_t> GetGroupAddressTranslationRange() const;

    bool GetUseUrns() const;

    /// Tells every plug-in to read its configuration again; the answer of the last one.
    bool Reload() const;

private:
    template <typename Answer, typename Question>
    Answer FirstAnswer(Answer noAnswer, const Question& question) const;
};

/// Holds the current set of plug-ins for callers on any thread. A caller keeps the set that it asks alive:
/// when the set is replaced or dropped meanwhile, its plug-ins are deleted and unloaded by the last caller
/// that leaves it, so that nobody ever waits for a plug-in that hangs.
class KnxAppPrgHandlerSet {
public:
    /// Drops the current set, then loads a new one. Result as DynamicHandlers::Init; whatever goes wrong in a
    /// plug-in or the file system comes out as a std::runtime_error. Questions asked meanwhile have their
    /// no-answer values.
    bool Load(const std::string& firstDirectory, const std::string& secondDirectory, const std::string& name);

    /// Drops the current set.
    void Clear();

    /// The result of `question(const DynamicKnxAppPrgHandlers&)`. An exception of a plug-in comes out as a
    /// std::runtime_error with the same text.
    template <typename Question>
    auto Ask(const Question& question) const {
        const std::shared_ptr<const DynamicKnxAppPrgHandlers> set = Current();
        return WithOwnExceptions([&] { return question(*set); });
    }

private:
    std::shared_ptr<const DynamicKnxAppPrgHandlers> Current() const;
    void Replace(std::shared_ptr<const DynamicKnxAppPrgHandlers> set);

    mutable std::mutex m_mutex; // a leaf: nothing is called while it is held
    std::shared_ptr<const DynamicKnxAppPrgHandlers> m_set = std::make_shared<DynamicKnxAppPrgHandlers>();
};
