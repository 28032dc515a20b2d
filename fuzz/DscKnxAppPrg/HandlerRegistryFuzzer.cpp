// The registry file of the plug-ins: what is read comes back from a file that is written of it, a program's
// plug-ins are among those of all programs, and loading them, whatever each does, leaves none behind.

#include "DynamicKnxAppPrgHandlers.h"
#include "Fuzz.h"
#include "SilentClient.h"
#include "Tav/tavDynamicLibraryLoader.h"
#include "TemporaryDirectory.h"

#include <pugixml.hpp>

#include <algorithm>
#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>

namespace {

using Handlers = std::vector<RegisteredHandler>;

/// What a library does is told by the first character of its path.
enum Behaviour : char {
    NoLibrary = 'n',
    NoCreate = 'c',
    NoDelete = 'd',
    Declines = 'D',
    FailsToInitialize = 'i',
    ThrowsAtTheEnd = 't',
};

int s_loaded = 0;
int s_handlers = 0;

class Plugin : public Vesk::IKnxAppPrgHandler {
public:
    explicit Plugin(char behaviour) : m_behaviour(behaviour) { ++s_handlers; }
    ~Plugin() override { --s_handlers; }
    bool Initialize() override { return m_behaviour != FailsToInitialize; }
    std::uint32_t GetIDFromCO(std::uint16_t, KNXDPT&) override { return 0; }
    std::string GetUrnFromCO(std::uint16_t, KNXDPT&) override { return {}; }
    std::uint16_t GetCOFromID(std::uint32_t, bool, KNXDPT&) override { return kNoCo; }
    std::uint16_t GetCOFromUrn(const std::string&, bool, KNXDPT&) override { return kNoCo; }
    bool IsKnxEventDataPoint(std::uint32_t) override { return false; }
    bool IsKnxEventDataPoint(const std::string&) override { return false; }
    bool IsOxnReadInternalDataPoint(std::uint32_t) override { return false; }
    bool IsOxnReadInternalDataPoint(const std::string&) override { return false; }
    std::uint16_t GetTimeCoByIndex(std::uint32_t, bool, KNXDPT&) override { return kNoCo; }
    std::uint32_t GetInterfaceObjectId() override { return 0; }
    std::uint32_t GetPropertyByIndex(std::uint32_t, std::uint8_t&, std::string&, std::uint16_t&) override {
        return 0;
    }
    std::uint32_t GetExtendedInterfaceObjectType() override { return 0; }
    std::vector<Vesk::KnxAppPrg::ExtendedProperty> GetExtendedProperties() override { return {}; }
    std::pair<std::uint16_t, std::uint16_t> GetGroupAddressTranslationRange() override { return {0, 0}; }
    bool GetUseUrns() override { return false; }
    bool Reload() override { return true; }

private:
    char m_behaviour;
};

char s_creating = 0;                         // the library whose CreateHandler was looked up last
std::vector<std::unique_ptr<Plugin>> s_left; // those whose library cannot delete them

Vesk::IKnxAppPrgHandler* Create(std::string&) {
    if (s_creating == Declines)
        return nullptr;
    auto* const plugin = new Plugin(s_creating);
    if (s_creating == NoDelete)
        s_left.emplace_back(plugin);
    return plugin;
}

bool Delete(Vesk::IKnxAppPrgHandler*& handler) {
    delete handler;
    handler = nullptr;
    return true;
}

bool DeleteAndThrow(Vesk::IKnxAppPrgHandler*& handler) {
    Delete(handler);
    throw std::runtime_error("in DeleteHandler");
}

bool IsUsable(const RegisteredHandler& handler) {
    const char behaviour =
        handler.libraryPath.empty() ? static_cast<char>(NoLibrary) : handler.libraryPath[0];
    return behaviour != NoLibrary && behaviour != NoCreate && behaviour != FailsToInitialize;
}

bool Same(const RegisteredHandler& a, const RegisteredHandler& b) {
    return a.libraryPath == b.libraryPath && a.configFile == b.configFile;
}

/// True when `part` is `whole` with some left out.
bool IsPartOf(const Handlers& part, const Handlers& whole) {
    auto next = whole.begin();
    for (const RegisteredHandler& handler : part) {
        next = std::find_if(next, whole.end(), [&](const auto& other) { return Same(handler, other); });
        if (next == whole.end())
            return false;
        ++next;
    }
    return true;
}

/// A directory whose registry file is in memory: writing to a disk would take most of the time.
class RegistryDirectory {
public:
    RegistryDirectory() {
        Fuzz::Check(m_file >= 0);
        std::filesystem::create_symlink("/proc/self/fd/" + std::to_string(m_file),
                                        m_directory / "knxappprghandlers.xml");
    }
    ~RegistryDirectory() { ::close(m_file); }
    RegistryDirectory(const RegistryDirectory&) = delete;
    RegistryDirectory& operator=(const RegistryDirectory&) = delete;

    void Write(const void* data, std::size_t size) const {
        Fuzz::Check(::ftruncate(m_file, 0) == 0);
        Fuzz::Check(::pwrite(m_file, data, size, 0) == static_cast<ssize_t>(size));
    }
    void Write(const Handlers& handlers) const;
    std::string Path() const { return m_directory.Path(); }

private:
    const TestSupport::TemporaryDirectory m_directory;
    const int m_file = ::memfd_create("registry", MFD_CLOEXEC);
};

void RegistryDirectory::Write(const Handlers& handlers) const {
    pugi::xml_document document;
    pugi::xml_node program =
        document.append_child("KnxApplicationPrograms").append_child("KnxApplicationProgram");
    program.append_attribute("Name") = "again";
    pugi::xml_node list = program.append_child("DynamicHandlers");
    for (const RegisteredHandler& handler : handlers) {
        pugi::xml_node node = list.append_child("DynamicHandler");
        node.append_attribute("Library") = handler.libraryPath.c_str();
        node.append_attribute("ConfigFile") = handler.configFile.c_str();
    }
    Fuzz::Check(document.save_file((m_directory / "knxappprghandlers.xml").c_str()));
}

} // namespace

void* tavDynamicLibraryLoader::tavLoadLibrary(const std::string& path) {
    Fuzz::Check(!path.empty());
    if (path[0] == NoLibrary)
        return nullptr;
    ++s_loaded;
    return new char(path[0]);
}

void* tavDynamicLibraryLoader::tavGetProcAddr(void* handle, const std::string& symbol) {
    const char behaviour = *static_cast<char*>(handle);
    if (symbol == "CreateHandler") {
        s_creating = behaviour;
        return behaviour == NoCreate ? nullptr : reinterpret_cast<void*>(&Create);
    }
    Fuzz::Check(symbol == "DeleteHandler");
    if (behaviour == NoDelete)
        return nullptr;
    return reinterpret_cast<void*>(behaviour == ThrowsAtTheEnd ? &DeleteAndThrow : &Delete);
}

void tavDynamicLibraryLoader::tavFreeLibrary(void* handle) {
    --s_loaded;
    delete static_cast<char*>(handle);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const RegistryDirectory first;
    static const RegistryDirectory second;
    Fuzz::LogToNowhere();
    first.Write(data, size);
    const Handlers all = ReadHandlerRegistry(first.Path(), "");
    const Handlers own = ReadHandlerRegistry(first.Path(), "dscknxappprg");
    Fuzz::Check(IsPartOf(own, all));

    second.Write(all);
    const Handlers again = ReadHandlerRegistry(second.Path(), "again");
    Fuzz::Check(std::equal(all.begin(), all.end(), again.begin(), again.end(), Same));

    {
        DynamicKnxAppPrgHandlers handlers;
        const bool loaded = handlers.Init(first.Path(), second.Path(), "dscknxappprg");
        Fuzz::Check(loaded == std::all_of(own.begin(), own.end(), IsUsable));
        Fuzz::Check(loaded || s_loaded == 0);
    }
    Fuzz::Check(s_loaded == 0);
    Fuzz::Check(s_handlers == static_cast<int>(s_left.size()));
    s_left.clear();
    return 0;
}
