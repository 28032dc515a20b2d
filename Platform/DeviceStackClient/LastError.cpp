#include "DeviceStackClient/LastError.h"

#include <algorithm>
#include <atomic>
#include <utility>
#include <vector>

namespace DeviceStackClient {

namespace {

struct Entry {
    std::uint64_t client;
    std::string text;
};

constexpr std::size_t kMaxEntries =
    16; // clients of one thread with a failure; those of the longest ago go first

std::vector<Entry>& Entries() {
    thread_local std::vector<Entry> entries;
    return entries;
}

std::uint64_t NextClient() {
    static std::atomic<std::uint64_t> last{0};
    return ++last;
}

} // namespace

LastError::LastError() : m_client(NextClient()) {}

void LastError::Set(std::string text) const {
    Clear();
    auto& entries = Entries();
    if (entries.size() >= kMaxEntries)
        entries.erase(entries.begin());
    entries.push_back({m_client, std::move(text)});
}

void LastError::Clear() const {
    std::erase_if(Entries(), [this](const Entry& entry) { return entry.client == m_client; });
}

std::string LastError::Get() const {
    const auto& entries = Entries();
    const auto found =
        std::find_if(entries.begin(), entries.end(), [this](const Entry& e) { return e.client == m_client; });
    return found == entries.end() ? std::string() : found->text;
}

} // namespace DeviceStackClient
