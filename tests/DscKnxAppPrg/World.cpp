#include "World.h"

World::World() {
    recorder.NameThisThread("host");
    files.Write("stack/readme.txt", "no registry file here yet\n");
    files.Write("user/readme.txt", "nor here\n");
    stack.configuration = Configuration("QTRMNV01");
    hub.groupValueService = &service;
    hub.propertyService = &propertyService;
}

std::string World::Configuration(const std::string& deviceId) const {
    return R"({"ipc":{"DeviceId":")" + deviceId + R"(","DeviceStackConfigPath":")" + files / "stack" +
           R"(","UserDataPath":")" + files / "user" + R"("}})";
}

void World::RegisterPlugins(std::initializer_list<const char*> names, const std::string& directory,
                            const std::string& program) {
    std::string handlers;
    for (const std::string name : names)
        handlers += "      <DynamicHandler Library=\"" + TestSupport::FakePlugins::Library(name) +
                    "\" ConfigFile=\"" + name + ".json\"/>\n";
    files.Write(directory + "/knxappprghandlers.xml",
                "<KnxApplicationPrograms>\n  <KnxApplicationProgram Name=\"" + program +
                    "\">\n    <DynamicHandlers>\n" + handlers +
                    "    </DynamicHandlers>\n  </KnxApplicationProgram>\n</KnxApplicationPrograms>\n");
}

void World::RegisterLibrary(const std::string& path) {
    files.Write("stack/knxappprghandlers.xml",
                R"(<KnxApplicationPrograms><KnxApplicationProgram Name="dscknxappprg"><DynamicHandlers>)"
                R"(<DynamicHandler Library=")" +
                    path + R"("/></DynamicHandlers></KnxApplicationProgram></KnxApplicationPrograms>)");
}

void World::ExpectTranscript(const std::vector<std::string>& lines, std::string_view transcript,
                             const char* file, int line) {
    const testing::AssertionResult same = TestSupport::IsTranscript(lines, transcript);
    if (!same)
        ADD_FAILURE_AT(file, line) << same.message();
}
