// The process view: never an exception, and what is remembered of it leads from IDs to URNs and back. A view
// without a fault is remembered whole, its first entry of an ID or URN before later ones.

#include "Fuzz.h"
#include "PrivateMembers.h"
#include "SilentClient.h"

#include <boost/json.hpp>

#include <optional>
#include <set>
#include <vector>

namespace json = boost::json;

namespace {

constexpr std::uint32_t kNoId = 0xFFFFFFFF;

std::string s_view;

class Client : public Fuzz::SilentClient {
public:
    using SilentClient::Command;
    bool Command(const std::string&, std::string& response, int) override {
        response = s_view;
        return true;
    }
};

struct Entry {
    std::uint32_t id;
    std::string urn;
};

/// The entries of a view in which nothing is wrong or unusual: whole numbers and texts.
std::optional<std::vector<Entry>> EntriesOf(const std::string& text) {
    boost::system::error_code error;
    const json::value view = json::parse(text, error);
    if (error)
        return std::nullopt;
    const json::value* const points = view.find_pointer("/response/processView/datapoints", error);
    if (error || points == nullptr || !points->is_array())
        return std::nullopt;
    std::vector<Entry> entries;
    for (const json::value& point : points->get_array()) {
        if (!point.is_object())
            return std::nullopt;
        const json::value* const id = point.get_object().if_contains("id");
        const json::value* const urn = point.get_object().if_contains("urn");
        if (id == nullptr || urn == nullptr || !id->is_int64() || id->get_int64() < 0 ||
            id->get_int64() > kNoId || !urn->is_string())
            return std::nullopt;
        entries.push_back({static_cast<std::uint32_t>(id->get_int64()),
                           std::string(urn->get_string().data(), urn->get_string().size())});
    }
    return entries;
}

void CheckEntries(DscKnxAppPrg::KnxHandler& handler, const std::vector<Entry>& entries) {
    std::set<std::uint32_t> ids;
    std::set<std::string> urns;
    for (const Entry& entry : entries) {
        if (entry.id == 0 || entry.urn.empty())
            continue;
        const bool first = !ids.contains(entry.id) && !urns.contains(entry.urn);
        if (first) {
            ids.insert(entry.id);
            urns.insert(entry.urn);
            Fuzz::Check(handler.ResolveUrn(entry.urn) == entry.id);
            Fuzz::Check(entry.id == kNoId || handler.ResolveID(entry.id) == entry.urn);
        }
    }
}

/// Every number that stands anywhere as a whole one.
void CollectIds(const json::value& value, std::set<std::uint32_t>& ids) {
    if (const json::array* const array = value.if_array()) {
        for (const json::value& element : *array)
            CollectIds(element, ids);
    } else if (const json::object* const object = value.if_object()) {
        for (const json::key_value_pair& member : *object)
            CollectIds(member.value(), ids);
    } else if (value.is_int64()) {
        ids.insert(static_cast<std::uint32_t>(value.get_int64()));
    }
}

DscKnxAppPrg& Program() {
    static DscKnxAppPrg program;
    static const bool connected = (program.*Reach(PrivateMembers::Connect()))();
    Fuzz::Check(connected);
    return program;
}

} // namespace

std::unique_ptr<Vesk::IDeviceStackClient> Vesk::CreateDeviceStackClient() {
    return std::make_unique<Client>();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Fuzz::LogToNowhere();
    DscKnxAppPrg::KnxHandler& handler = Program().*Reach(PrivateMembers::KnxHandler());
    s_view.assign(reinterpret_cast<const char*>(data), size);
    const bool updated = handler.UpdateIdUrnMap();

    if (const auto entries = EntriesOf(s_view)) {
        Fuzz::Check(updated);
        CheckEntries(handler, *entries);
    }
    boost::system::error_code error;
    const json::value view = json::parse(s_view, error);
    Fuzz::Check(!updated || !error);
    std::set<std::uint32_t> ids;
    if (!error)
        CollectIds(view, ids);
    for (const std::uint32_t id : ids) {
        const std::string urn = handler.ResolveID(id);
        Fuzz::Check(urn.empty() || handler.ResolveUrn(urn) == id);
    }
    return 0;
}
