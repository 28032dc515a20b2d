#include "KnxStackHost/Program/HandlerRegistry.h"

#include "Tav/tavDynamicLibraryLoader.h"

#include <fmt/format.h>
#include <pugixml.hpp>

#include <filesystem>

namespace KnxStackHost {

namespace {

constexpr const char* kFileName = "knxappprghandlers.xml";
constexpr const char* kDefaultProgramName = "dscknxappprg";

std::string ProgramName(const Configuration& configuration) {
    const auto setting = configuration.program.settings.find("AppPrgHandlerName");
    return setting == configuration.program.settings.end() ? kDefaultProgramName : setting->second;
}

/// Why the library cannot be a plug-in; "" when it can.
std::string PluginFault(const std::string& library) {
    void* const handle = tavDynamicLibraryLoader::tavLoadLibrary(library);
    if (handle == nullptr)
        return fmt::format("the plug-in {} cannot be loaded: {}", library,
                           tavDynamicLibraryLoader::tavGetLastError());
    const bool makesHandlers = tavDynamicLibraryLoader::tavGetProcAddr(handle, "CreateHandler") != nullptr;
    tavDynamicLibraryLoader::tavFreeLibrary(handle);
    return makesHandlers ? "" : fmt::format("{} is no plug-in: it does not export CreateHandler", library);
}

} // namespace

void CheckHandlerRegistry(const Configuration& configuration) {
    if (configuration.project.empty())
        return;
    const std::string file =
        (std::filesystem::path(configuration.project).parent_path() / kFileName).string();
    pugi::xml_document document;
    const auto result = document.load_file(file.c_str());
    if (result.status == pugi::status_file_not_found)
        throw ConfigurationError(
            fmt::format("{}: there is no such file; it names the plug-ins that know the project", file));
    if (!result)
        throw ConfigurationError(fmt::format("{}: byte {}: {}", file, result.offset, result.description()));

    const std::string name = ProgramName(configuration);
    bool listed = false;
    for (const auto& program : document.child("KnxApplicationPrograms").children("KnxApplicationProgram")) {
        if (!name.empty() && name != program.attribute("Name").value())
            continue;
        for (const auto& handler : program.child("DynamicHandlers").children("DynamicHandler")) {
            const auto library = handler.attribute("Library");
            if (!library)
                continue;
            listed = true;
            const std::string fault = PluginFault(library.value());
            if (!fault.empty())
                throw ConfigurationError(fmt::format("{}: {}", file, fault));
        }
    }
    if (!listed)
        throw ConfigurationError(
            fmt::format("{}: no plug-in is listed for the application program \"{}\"", file, name));
}

} // namespace KnxStackHost
