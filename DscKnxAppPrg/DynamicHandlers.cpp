#include "DynamicHandlers.h"

#include "Helper/File.h"

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>
#include <pugixml.hpp>

namespace {

constexpr const char* kRegistryFile = "knxappprghandlers.xml";

bool IsSelected(const pugi::xml_node& program, const std::string& name) {
    if (name.empty())
        return true;
    const pugi::xml_attribute attribute = program.attribute("Name");
    return attribute && name == attribute.value();
}

} // namespace

std::vector<RegisteredHandler> ReadHandlerRegistry(const std::string& directory, const std::string& name) {
    std::vector<RegisteredHandler> handlers;
    if (boost::filesystem::status(directory).type() == boost::filesystem::file_not_found)
        return handlers;

    const boost::filesystem::path file =
        boost::filesystem::path(Helper::File::make_path(directory)) / kRegistryFile;
    boost::system::error_code ignored;
    if (boost::filesystem::is_directory(file, ignored))
        return handlers; // the parser would take it for a file of the greatest possible size
    pugi::xml_document document;
    if (!document.load_file(file.c_str()))
        return handlers;

    for (const pugi::xml_node& program :
         document.child("KnxApplicationPrograms").children("KnxApplicationProgram")) {
        if (!IsSelected(program, name))
            continue;
        for (const pugi::xml_node& handler : program.child("DynamicHandlers").children("DynamicHandler")) {
            if (const pugi::xml_attribute library = handler.attribute("Library"))
                handlers.push_back({library.value(), handler.attribute("ConfigFile").value()});
        }
    }
    return handlers;
}
