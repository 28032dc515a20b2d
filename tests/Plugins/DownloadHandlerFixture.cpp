#include "DownloadHandlerFixture.h"

#include "ProjectFile/ApplicationData.h"
#include "Tav/Export.h"

#include <cerrno>
#include <cstdio>
#include <dlfcn.h>
#include <fcntl.h>
#include <stdexcept>
#include <sys/syscall.h>
#include <unistd.h>

// The library finds these before those of the C library.
extern "C" {

TAV_EXPORT int fsync(int fd) {
    const int error = SystemCalls::onFsync ? SystemCalls::onFsync(fd) : 0;
    if (error != 0) {
        errno = error;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_fsync, fd));
}

TAV_EXPORT int rename(const char* from, const char* to) noexcept {
    const int error = SystemCalls::onRename ? SystemCalls::onRename(from, to) : 0;
    if (error != 0) {
        errno = error;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0));
}
}

DownloadHandlerTest::DownloadHandlerTest() {
    m_library = dlopen(DOWNLOAD_HANDLER, RTLD_NOW | RTLD_LOCAL);
    EXPECT_NE(m_library, nullptr) << dlerror();
    m_directory.Write("project.json", kOldProject);
    for (std::uint16_t co = 1; co <= 10; ++co) {
        m_coDescriptors[co] = {co, 1};
    }
}

DownloadHandlerTest::~DownloadHandlerTest() {
    SystemCalls::onFsync = nullptr;
    SystemCalls::onRename = nullptr;
    m_handler.reset();
    dlclose(m_library);
}

void DownloadHandlerTest::Create(std::string configFile) {
    using Vesk::IKnxDownloadHandler;
    const auto create =
        reinterpret_cast<IKnxDownloadHandler* (*)(std::string&)>(dlsym(m_library, "CreateHandler"));
    const auto destroy = reinterpret_cast<bool (*)(IKnxDownloadHandler*&)>(dlsym(m_library, "DeleteHandler"));
    ASSERT_TRUE(create && destroy);
    m_handler = {create(configFile), [destroy](IKnxDownloadHandler* handler) {
                     EXPECT_TRUE(destroy(handler));
                     EXPECT_EQ(handler, nullptr);
                 }};
}

void DownloadHandlerTest::Start(const std::string& configuration) {
    m_directory.Write("download.json", configuration);
    Create(m_directory / "download.json");
    ASSERT_TRUE(m_handler->Initialize());
    ASSERT_EQ(Lines(), std::vector<std::string>());
}

KnxStack::BinaryData DownloadHandlerTest::DataOf(const std::string& project) {
    const auto parsed = ProjectFile::ParseProject(project, "downloaded");
    if (!parsed) {
        throw std::invalid_argument(parsed.Error());
    }
    return KnxStack::BinaryData(
        std::span<const std::uint8_t>(ProjectFile::EncodeApplicationData(*parsed.project).data));
}

bool DownloadHandlerTest::Download(const KnxStack::BinaryData& data) {
    return m_handler->CreateFileWithKnxData(m_interfaceObjects, data, m_announce, m_appData, m_coDescriptors);
}

void DownloadHandlerTest::ExpectNothingLeftOf(const KnxStack::BinaryData& data, const std::string& cause) {
    m_recorder.Clear();
    const auto before = Files();
    EXPECT_FALSE(Download(data));
    EXPECT_EQ(Files(), before);
    auto lines = Lines();
    std::erase(lines, "announce");
    EXPECT_EQ(lines, std::vector<std::string>{"ERROR CreateFileWithKnxData(): Download refused, " +
                                              m_directory / "project.json" + " stays as it was: " + cause});
}

void DownloadHandlerTest::ExpectRefused(const KnxStack::BinaryData& data, const std::string& cause) {
    ExpectNothingLeftOf(data, cause);
    EXPECT_EQ(m_recorder.Count("announce"), 0u);
}

std::vector<std::string> DownloadHandlerTest::Lines() const {
    std::vector<std::string> lines = m_recorder.Lines();
    for (std::string& line : lines) {
        constexpr std::string_view kLogger = "KnxStack.DownloadHandler | ";
        if (const std::size_t at = line.find(kLogger); at != std::string::npos) {
            line.erase(at, kLogger.size());
        }
    }
    return lines;
}

std::map<std::string, std::string> DownloadHandlerTest::Files() const {
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(m_directory.Path())) {
        const std::string name = entry.path().lexically_relative(m_directory.Path()).string();
        files[name] = entry.is_regular_file() ? m_directory.Read(name) : "";
    }
    return files;
}

std::string ProjectText(const std::string& dataPoints, const std::string& knx) {
    return R"({"version": 1, "device": "house", "knx": {)" + knx + R"(}, "dataPoints": [)" + dataPoints +
           "]}";
}
