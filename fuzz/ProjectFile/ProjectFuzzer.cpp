// Project files: a text is a project or has an error, and a project finds its own data points again and comes
// back from the text that is written for it.

#include "Fuzz.h"

#include "ProjectFile/Project.h"

#include <string_view>

namespace {

void CheckProject(const ProjectFile::Project& project) {
    for (const ProjectFile::DataPoint& point : project.dataPoints) {
        Fuzz::Check(project.FindById(point.id) == &point);
        Fuzz::Check(project.FindByName(point.name) == &point);
        Fuzz::Check(project.FindByUrn(point.urn) == &point);
        if (!point.knx)
            continue;
        Fuzz::Check(point.knx->readCo != 0 || point.knx->writeCo != 0);
        for (const auto co : {point.knx->readCo, point.knx->writeCo}) {
            Fuzz::Check(co == 0 || project.FindByCo(co) == &point);
            Fuzz::Check(!project.translationRange.Contains(co));
        }
    }
    for (const ProjectFile::TimeCo& timeCo : project.timeCos) {
        const auto* point = project.FindByCo(timeCo.co);
        Fuzz::Check(point && point->id == ProjectFile::FixedId::kClock);
    }
    const auto again = ProjectFile::ParseProject(ProjectFile::WriteProject(project), "again.json");
    Fuzz::Check(again && *again.project == project);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto loaded = ProjectFile::ParseProject(text, "project.json");
    Fuzz::Check(static_cast<bool>(loaded) == loaded.errors.empty());
    for (const auto& error : loaded.errors)
        Fuzz::Check(error.starts_with("project.json: "));
    if (loaded)
        CheckProject(*loaded.project);
    return 0;
}
