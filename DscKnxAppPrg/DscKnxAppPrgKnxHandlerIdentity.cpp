// Which data point belongs to which communication object, and by which names.
#include "DscKnxAppPrg.h"

#include <boost/json.hpp>
#include <boost/system/system_error.hpp>
#include <boost/thread/thread.hpp>
#include <log4cplus/loggingmacros.h>

#include <charconv>
#include <stdexcept>

namespace json = boost::json;

namespace {

constexpr const char* kProcessViewCommand = "{\"command\":\"GetProcessView\",\"cached\":true}";
constexpr int kProcessViewTimeoutSeconds = 5;
constexpr std::uint32_t kInvalidId = 0xFFFFFFFF;

const char* DirectionText(std::uint32_t mode) {
    switch (mode) {
    case 0: return "reading";
    case 1: return "writing";
    default: return "unknown";
    }
}

const char* StateText(bool state) {
    return state ? "true" : "false";
}

const json::value& Member(const json::value& parent, const char* name) {
    const json::object* const object = parent.if_object();
    if (object == nullptr)
        throw std::runtime_error(std::string("the parent of \"") + name + "\" is not an object");
    const json::value* const member = object->if_contains(name);
    if (member == nullptr)
        throw std::runtime_error(std::string("\"") + name + "\" is missing");
    return *member;
}

/// A decimal text up to its first other character, or an exact number; 0 for other kinds. Throws for a number
/// that is not a data point ID.
std::uint32_t IdFromJson(const json::value& value) {
    if (const json::string* const text = value.if_string()) {
        std::uint32_t id = 0;
        const auto result = std::from_chars(text->data(), text->data() + text->size(), id);
        return result.ec == std::errc() ? id : 0;
    }
    if (!value.is_number())
        return 0;
    boost::system::error_code error;
    const auto id = value.to_number<std::uint32_t>(error);
    if (error)
        throw std::runtime_error("\"id\": " + error.message());
    return id;
}

} // namespace

std::uint16_t DscKnxAppPrg::KnxHandler::GetCOFromID(std::uint32_t id, const std::string& urn, KNXDPT& dpt,
                                                    OpMode mode) {
    LOG4CPLUS_DEBUG(m_logger, "GetCOFromID(): Getting CO for ID "
                                  << id << " Urn " << urn << " for "
                                  << (mode == OpMode::Reading ? "reading" : "writing"));
    const std::lock_guard lock(mapMutex); // plug-ins included: two callers must not ask for the same ID
    const IdMapEntry* const entry = FindId(id);
    std::uint16_t co = 0;
    if (entry != nullptr)
        co = mode == OpMode::Reading ? entry->coRead : entry->coWrite;
    if (co != 0) {
        if (const CoMapEntry* const known = FindCo(co))
            dpt = known->dpt;
    } else {
        co = AskCOFromID(id, urn, dpt, mode);
        RememberPair(id, co, dpt, mode); // a failed look-up too: later calls for the ID get it from here
    }
    LOG4CPLUS_DEBUG(m_logger,
                    "GetCOFromID(): Returning CO " << co << " and DPT " << dpt.main << "." << dpt.sub);
    return co;
}

std::uint16_t DscKnxAppPrg::KnxHandler::AskCOFromID(std::uint32_t id, const std::string& urn, KNXDPT& dpt,
                                                    OpMode mode) const {
    const bool reading = mode == OpMode::Reading;
    const auto ask = [&] {
        return m_appPrg.m_handlers.Ask([&](const auto& handlers) {
            return useUrns && !urn.empty() ? handlers.GetCOFromUrn(TrimUrn(urn), reading, dpt)
                                           : handlers.GetCOFromID(id, reading, dpt);
        });
    };
    const std::uint16_t co = ask();
    if (co == kNoCo || dpt.sizeInBits == 0)
        return co;
    const std::uint8_t size = GetValueSizeFromCO(co);
    if (size == dpt.sizeInBits)
        return co;
    // The plug-in named a type of another size than the object has: it may choose again, knowing the size.
    dpt.sizeInBits = size;
    dpt.main = 0;
    dpt.sub = 0;
    return ask();
}

/// Null when there is none; so is the next.
const DscKnxAppPrg::KnxHandler::IdMapEntry* DscKnxAppPrg::KnxHandler::FindId(std::uint32_t id) const {
    const auto found = m_idIndex.find(id);
    return found != m_idIndex.end() ? found->second : nullptr;
}

const DscKnxAppPrg::KnxHandler::CoMapEntry* DscKnxAppPrg::KnxHandler::FindCo(std::uint16_t co) const {
    const auto found = m_coIndex.find(co);
    return found != m_coIndex.end() ? found->second : nullptr;
}

/// Made when there is none.
DscKnxAppPrg::KnxHandler::IdMapEntry& DscKnxAppPrg::KnxHandler::EntryOfId(std::uint32_t id) {
    const auto [entry, isNew] = idMap.try_emplace(id);
    if (isNew)
        m_idIndex.emplace(id, &entry->second);
    return entry->second;
}

/// The first pair recorded for a CO stays, and so does the first CO of an ID in each direction.
void DscKnxAppPrg::KnxHandler::RememberPair(std::uint32_t id, std::uint16_t co, const KNXDPT& dpt,
                                            OpMode mode) {
    if (const auto [ofCo, isNew] = coMap.try_emplace(co, CoMapEntry{id, dpt}); isNew)
        m_coIndex.emplace(co, &ofCo->second);
    IdMapEntry& entry = EntryOfId(id);
    if (mode == OpMode::Writing && entry.coWrite == 0)
        entry.coWrite = co;
    else if (mode == OpMode::Reading && entry.coRead == 0)
        entry.coRead = co;
}

std::uint32_t DscKnxAppPrg::KnxHandler::GetIDFromCO(std::uint16_t co, KNXDPT& dpt, OpMode mode) {
    LOG4CPLUS_DEBUG(m_logger, "GetIDFromCO(): Getting ID for CO "
                                  << co << " for " << DirectionText(static_cast<std::uint32_t>(mode)));
    std::uint32_t id = 0;
    std::uint64_t generation = 0;
    bool known = false;
    {
        const std::lock_guard lock(mapMutex);
        generation = m_mapGeneration;
        if (const CoMapEntry* const entry = FindCo(co)) {
            id = entry->id;
            dpt = entry->dpt;
            known = true;
        }
    }
    if (!known) {
        const auto ask = [&](const auto& question) { return m_appPrg.m_handlers.Ask(question); };
        if (useUrns)
            id = ResolveUrn(ask([&](const auto& handlers) { return handlers.GetUrnFromCO(co, dpt); }));
        else
            id = ask([&](const auto& handlers) { return handlers.GetIDFromCO(co, dpt); });
        if (id == 0) {
            // Not remembered, unlike a failed look-up of a CO: the data point may appear later.
            LOG4CPLUS_ERROR(m_logger,
                            "GetIDFromCO(): ID = '" << id << "' is invalid from CO =  '" << co << "'");
        } else {
            const std::lock_guard lock(mapMutex);
            if (generation == m_mapGeneration)
                RememberPair(id, co, dpt, mode);
        }
    }
    LOG4CPLUS_DEBUG(m_logger,
                    "GetIDFromCO(): Returning ID " << id << " and DPT " << dpt.main << "." << dpt.sub);
    return id;
}

std::shared_ptr<const std::string> DscKnxAppPrg::KnxHandler::UrnPrefix() const {
    const std::lock_guard lock(m_urnPrefixMutex);
    return urnPrefix;
}

void DscKnxAppPrg::KnxHandler::SetUrnPrefix(std::string prefix) {
    auto snapshot = std::make_shared<const std::string>(std::move(prefix));
    const std::lock_guard lock(m_urnPrefixMutex);
    urnPrefix.swap(snapshot);
}

std::string DscKnxAppPrg::KnxHandler::TrimUrn(std::string_view urn) const {
    const auto prefix = UrnPrefix();
    if (!urn.starts_with(*prefix))
        return {}; // a URN of another device has no name here
    return std::string(urn.substr(prefix->size()));
}

std::string DscKnxAppPrg::KnxHandler::ResolveID(std::uint32_t id) {
    LOG4CPLUS_DEBUG(m_logger, "ResolveID: Resolving URN for ID " << id << ".");
    if (id == 0 || id == kInvalidId)
        return {};
    std::uint64_t generation = 0;
    {
        const std::shared_lock lock(idUrnLock);
        generation = m_idUrnGeneration;
        if (const auto entry = idUrnMap.left.find(id); entry != idUrnMap.left.end()) {
            LOG4CPLUS_DEBUG(m_logger,
                            "ResolveID: Found URN for ID " << id << " in map: '" << entry->second << "'");
            return entry->second;
        }
    }
    if (!m_appPrg.m_client)
        return {};
    std::string urn = TrimUrn(m_appPrg.m_client->GetUrn(id, 0));
    if (!urn.empty())
        RememberUrn(id, urn, generation);
    LOG4CPLUS_DEBUG(m_logger, "ResolveID: Resolved URN for ID " << id << " via OXN-API: '" << urn << "'");
    return urn;
}

std::uint32_t DscKnxAppPrg::KnxHandler::ResolveUrn(const std::string& urn) {
    LOG4CPLUS_DEBUG(m_logger, "ResolveUrn: Resolving ID for URN '" << urn << "'.");
    if (urn.empty())
        return 0;
    std::uint64_t generation = 0;
    {
        const std::shared_lock lock(idUrnLock);
        generation = m_idUrnGeneration;
        if (const auto entry = idUrnMap.right.find(urn); entry != idUrnMap.right.end()) {
            LOG4CPLUS_DEBUG(m_logger,
                            "ResolveUrn: Found ID for URN '" << urn << "' in map: " << entry->second);
            return entry->second;
        }
    }
    if (!m_appPrg.m_client)
        return 0;
    const std::uint32_t id = m_appPrg.m_client->GetId(*UrnPrefix() + urn);
    if (id != 0)
        RememberUrn(id, urn, generation);
    LOG4CPLUS_DEBUG(m_logger, "ResolveUrn: Resolved ID for URN '" << urn << "' via OXN-API: " << id);
    return id;
}

void DscKnxAppPrg::KnxHandler::RememberUrn(std::uint32_t id, const std::string& urn,
                                           std::uint64_t generation) {
    const std::unique_lock lock(idUrnLock);
    if (generation == m_idUrnGeneration)
        idUrnMap.insert({id, urn});
}

bool DscKnxAppPrg::KnxHandler::UpdateIdUrnMap() {
    LOG4CPLUS_INFO(m_logger, "UpdateIdUrnMap: Updating ID-URN Map");
    {
        const std::unique_lock lock(idUrnLock);
        idUrnMap.clear();
        ++m_idUrnGeneration;
    }
    std::string response;
    {
        const boost::this_thread::disable_interruption clientCall;
        const std::lock_guard lock(m_appPrg.m_clientMutex);
        if (m_appPrg.m_client)
            m_appPrg.m_client->Command(kProcessViewCommand, response, kProcessViewTimeoutSeconds);
    }
    if (response.empty()) {
        LOG4CPLUS_WARN(m_logger, "UpdateIdUrnMap: No response received for GetProcessView");
        return false;
    }
    boost::system::error_code error;
    const json::value processView = json::parse(response, error);
    if (error) {
        LOG4CPLUS_WARN(m_logger, "UpdateIdUrnMap: Failed to parse GetProcessView response.");
        return false;
    }
    try {
        FillIdUrnMap(processView);
    } catch (const std::exception& failure) {
        LOG4CPLUS_WARN(m_logger,
                       "UpdateIdUrnMap: Failed to parse GetProcessView response: " << failure.what());
        return false;
    }
    std::size_t size = 0;
    {
        const std::shared_lock lock(idUrnLock);
        size = idUrnMap.size();
    }
    LOG4CPLUS_INFO(m_logger, "UpdateIdUrnMap: Added " << size << " entries to ID-URN Map");
    return true;
}

void DscKnxAppPrg::KnxHandler::FillIdUrnMap(const json::value& processView) {
    const json::value& dataPoints =
        Member(Member(Member(processView, "response"), "processView"), "datapoints");
    if (!dataPoints.is_array())
        throw std::runtime_error("\"datapoints\" is not an array");
    const std::unique_lock lock(idUrnLock);
    for (const json::value& dataPoint : dataPoints.get_array()) {
        const std::uint32_t id = IdFromJson(Member(dataPoint, "id"));
        const json::string* const text = Member(dataPoint, "urn").if_string();
        if (text == nullptr)
            throw std::runtime_error("\"urn\" is not a string");
        const std::string urn = TrimUrn({text->data(), text->size()});
        if (id != 0 && !urn.empty())
            idUrnMap.insert({id, urn}); // a repeated ID or URN is refused: the first one stays
    }
}

DscKnxAppPrg::KnxHandler::TriState DscKnxAppPrg::KnxHandler::CachedState(std::uint32_t id,
                                                                         TriState IdMapEntry::*field,
                                                                         std::uint64_t& generation) const {
    const std::lock_guard lock(mapMutex);
    generation = m_mapGeneration;
    const IdMapEntry* const entry = FindId(id);
    return entry != nullptr ? entry->*field : TriState::NotAsked;
}

void DscKnxAppPrg::KnxHandler::RememberState(std::uint32_t id, TriState IdMapEntry::*field, bool state,
                                             std::uint64_t generation) {
    const std::lock_guard lock(mapMutex);
    if (generation == m_mapGeneration)
        EntryOfId(id).*field = state ? TriState::True : TriState::False;
}

bool DscKnxAppPrg::KnxHandler::IsKnxEventDataPoint(std::uint32_t id, const std::string& urn) {
    LOG4CPLUS_DEBUG(m_logger,
                    "IsKnxEventDataPoint(): Checking if eventing for ID " << id << " or URN '" << urn << "'");
    std::uint64_t generation = 0;
    const TriState cached = CachedState(id, &IdMapEntry::eventing, generation);
    bool eventing = cached == TriState::True;
    if (cached == TriState::NotAsked) {
        const bool byUrn = useUrns;
        const std::string name = !byUrn ? std::string() : urn.empty() ? ResolveID(id) : TrimUrn(urn);
        eventing = m_appPrg.m_handlers.Ask([&](const auto& handlers) {
            return byUrn ? handlers.IsKnxEventDataPoint(name) : handlers.IsKnxEventDataPoint(id);
        });
        RememberState(id, &IdMapEntry::eventing, eventing, generation);
    }
    LOG4CPLUS_DEBUG(m_logger, "IsKnxEventDataPoint(): Returning eventing state " << StateText(eventing));
    return eventing;
}

bool DscKnxAppPrg::KnxHandler::IsOxnReadInternalDataPoint(std::uint32_t id) {
    LOG4CPLUS_DEBUG(m_logger, "IsOxnReadInternalDataPoint(): Checking if read internal for ID " << id);
    std::uint64_t generation = 0;
    const TriState cached = CachedState(id, &IdMapEntry::readInternal, generation);
    bool readInternal = cached == TriState::True;
    if (cached == TriState::NotAsked) {
        const bool byUrn = useUrns;
        const std::string name = byUrn ? ResolveID(id) : std::string();
        readInternal = m_appPrg.m_handlers.Ask([&](const auto& handlers) {
            return byUrn ? handlers.IsOxnReadInternalDataPoint(name)
                         : handlers.IsOxnReadInternalDataPoint(id);
        });
        RememberState(id, &IdMapEntry::readInternal, readInternal, generation);
    }
    LOG4CPLUS_DEBUG(m_logger, "IsOxnReadInternalDataPoint(): Returning read internal state "
                                  << StateText(readInternal));
    return readInternal;
}

void DscKnxAppPrg::KnxHandler::ClearCoAndIdMap() {
    const std::lock_guard lock(mapMutex);
    coMap.clear();
    idMap.clear();
    m_coIndex.clear();
    m_idIndex.clear();
    ++m_mapGeneration;
}
