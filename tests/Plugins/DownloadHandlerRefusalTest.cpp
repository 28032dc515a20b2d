// Downloads that are refused: the old project stays as it is, with one ERROR line and no other file.
#include "DownloadHandlerFixture.h"

#include "ProjectFile/ApplicationData.h"

#include <fmt/format.h>

#include <boost/thread/exceptions.hpp>

#include <csignal>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

KnxStack::BinaryData ToData(std::span<const std::uint8_t> bytes) {
    return KnxStack::BinaryData(bytes);
}

/// While it lives, the process is a user who may do nothing special.
class OrdinaryUser {
public:
    OrdinaryUser() : m_wasRoot(geteuid() == 0) {
        if (m_wasRoot) {
            EXPECT_EQ(seteuid(65534), 0);
        }
    }
    ~OrdinaryUser() {
        if (m_wasRoot) {
            EXPECT_EQ(seteuid(0), 0);
        }
    }
    OrdinaryUser(const OrdinaryUser&) = delete;
    OrdinaryUser& operator=(const OrdinaryUser&) = delete;

private:
    const bool m_wasRoot;
};

} // namespace

using DownloadRefusal = DownloadHandlerTest;

TEST_F(DownloadRefusal, EmptyData) {
    Start();
    ExpectRefused({}, "application data: byte 0: the data are empty");
}

TEST_F(DownloadRefusal, DataCutAtEveryLength) {
    Start();
    const auto data = DataOf(kNewProject);
    const auto bytes = data.Bytes();
    for (std::size_t size = 1; size < bytes.size(); ++size) {
        ExpectRefused(ToData(bytes.first(size)),
                      size < 16
                          ? fmt::format("application data: byte 0: the data are cut short: {} bytes, and the "
                                        "header alone has 16",
                                        size)
                          : fmt::format("application data: byte 0: the data are cut short: {} bytes of {}",
                                        size, bytes.size()));
    }
}

TEST_F(DownloadRefusal, EveryFlippedBit) {
    Start();
    const auto data = DataOf(kNewProject);
    for (std::size_t bit = 0; bit < data.GetSize() * 8; ++bit) {
        std::vector<std::uint8_t> flipped(data.Bytes().begin(), data.Bytes().end());
        flipped[bit / 8] ^= static_cast<std::uint8_t>(1 << bit % 8);
        m_recorder.Clear();
        EXPECT_FALSE(Download(ToData(flipped)));
        const auto lines = Lines();
        ASSERT_EQ(lines.size(), 1u) << bit;
        EXPECT_TRUE(lines[0].starts_with("ERROR CreateFileWithKnxData(): Download refused, ")) << lines[0];
        ASSERT_EQ(Project(), kOldProject) << bit;
    }
    EXPECT_EQ(Files().size(), 2u);
}

TEST_F(DownloadRefusal, ProjectThatTheDeviceStackWouldRefuse) {
    Start();
    constexpr std::uint8_t kTwice[] = {0x01, 0,   1,    'h', 0x10, 0, 10, 0, 0,    7, 0xD1, 0, 1, 0, 1,
                                       0,    'A', 0x10, 0,   10,   0, 0,  7, 0xD2, 0, 1,    0, 1, 0, 'A'};
    ExpectRefused(ToData(ProjectFile::SealApplicationData(kTwice)),
                  "application data: /dataPoints/1/name: name \"A\" is already taken by /dataPoints/0");
}

TEST_F(DownloadRefusal, DataPointOnACoThatTheDeviceLacks) {
    Start();
    const auto on = [](const char* co) {
        return DataOf(
            ProjectText(R"({"id": 1, "name": "A", "dpt": "1.001", "knx": {"co": )" + std::string(co) + "}}"));
    };
    constexpr const char* kCause =
        "data point 1 \"A\": CO 11 is not one of the 10 group objects with communication";
    ExpectRefused(on("11"), kCause);
    ExpectRefused(on(R"({"read": 11})"), kCause);
    ExpectRefused(on(R"({"read": 10, "write": 11})"), kCause);
    m_coDescriptors.clear();
    ExpectRefused(on("1"), "data point 1 \"A\": CO 1 is not one of the 0 group objects with communication");
}

TEST_F(DownloadRefusal, DataPointOnACoWithoutCommunication) {
    Start();
    m_coDescriptors[2].communicationEnabled = 0;
    ExpectRefused(DataOf(kNewProject),
                  "data point 2002 \"New\": CO 2 is not one of the 10 group objects with communication");
    m_coDescriptors.erase(2);
    ExpectRefused(DataOf(kNewProject),
                  "data point 2002 \"New\": CO 2 is not one of the 9 group objects with communication");
}

TEST_F(DownloadRefusal, ClockOnACoThatTheDeviceLacks) {
    Start();
    ExpectRefused(
        DataOf(ProjectText("", R"("timeCos": [{"co": 3, "dpt": "19.001"}, {"co": 12, "dpt": "10.001"}])")),
        "the clock: CO 12 is not one of the 10 group objects with communication");
}

TEST_F(DownloadRefusal, OwnInterfaceObjectThatTheDeviceLacks) {
    Start();
    const auto data = DataOf(ProjectText("", R"("interfaceObject": 4)"));
    constexpr const char* kCause =
        "the device does not have the application program's own interface object 4";
    ExpectRefused(data, kCause);
    m_interfaceObjects[4] = {};
    ExpectRefused(data, kCause);
    m_interfaceObjects[4] = {nullptr};
    ExpectRefused(data, kCause);
    m_interfaceObjects[4] = {nullptr, &m_object};
    EXPECT_TRUE(Download(data));
}

TEST_F(DownloadRefusal, PropertyThatWouldGetAnotherDefinition) {
    Start();
    const auto with = [](const char* definition) {
        return DataOf(ProjectText("", R"("interfaceObject": 3, "properties": [{"id": 201, )" +
                                          std::string(definition) + "}]"));
    };
    ExpectRefused(
        with(R"("dataType": 18)"),
        "property 201 of interface object 3 has data type 17 and 1 elements and would get 18 and 1; give the "
        "new one an id of its own");
    ExpectRefused(
        with(R"("dataType": 17, "elements": 2)"),
        "property 201 of interface object 3 has data type 17 and 1 elements and would get 17 and 2; give the "
        "new one an id of its own");
    EXPECT_TRUE(Download(with(R"("dataType": 17, "name": "another name")")));
}

TEST_F(DownloadRefusal, PropertyOfAFurtherObjectThatWouldGetAnotherDefinition) {
    const auto text = [](int dataType) {
        return ProjectText(
            "", fmt::format(R"("extendedProperties": [{{"id": 51, "dataType": {}, "objectType": 50002}}])",
                            dataType));
    };
    m_directory.Write("project.json", text(17));
    Start();
    FakeInterfaceObject object({51});
    m_interfaceObjects[50002] = {&object};
    ExpectRefused(DataOf(text(18)),
                  "property 51 of interface object 50002 has data type 17 and 1 elements and would get "
                  "18 and 1; give the new one an id of its own");
}

TEST_F(DownloadRefusal, PropertyThatTheDeviceDoesNotHaveMayGetAnyDefinition) {
    Start();
    FakeInterfaceObject withoutProperty({});
    m_interfaceObjects[3] = {nullptr, &withoutProperty};
    EXPECT_TRUE(Download(DataOf(ProjectText(
        "",
        R"("interfaceObject": 3, "properties": [{"id": 201, "dataType": 18}, {"id": 202, "dataType": 1}])"))));
}

TEST_F(DownloadRefusal, IdThatBelongedToAnotherDataPoint) {
    m_directory.Write("state/ids.json", R"({"version": 1, "ids": {"urn:oxn:dp:house:Gone": 2002}})");
    Start(R"({"project": "project.json", "stateDirectory": "state"})");
    ExpectRefused(DataOf(kNewProject),
                  "application data: the id 2002 belonged to urn:oxn:dp:house:Gone in an earlier "
                  "project and cannot go to urn:oxn:dp:house:New; take an id that was never used");
    m_directory.Write("state/ids.json", R"({"version": 1, "ids": {"urn:oxn:dp:house:New": 2002}})");
    EXPECT_TRUE(Download(DataOf(kNewProject)));
}

TEST_F(DownloadRefusal, IdsThatCannotBeRead) {
    m_directory.Write("state/ids.json", "{");
    Start(R"({"project": "project.json", "stateDirectory": "state"})");
    ExpectRefused(DataOf(kNewProject),
                  m_directory / "state/ids.json" +
                      " cannot be read (not JSON: incomplete JSON); bring back a copy of it, "
                      "or delete it when no id of a former project has to be kept from "
                      "other data points");
    // Before the first start of the device stack there is none.
    std::filesystem::remove(m_directory / "state/ids.json");
    EXPECT_TRUE(Download(DataOf(kNewProject)));
}

TEST_F(DownloadRefusal, IdsThatMayNotBeRead) {
    m_directory.Write("state/ids.json", R"({"version": 1, "ids": {}})");
    Start(R"({"project": "project.json", "stateDirectory": "state"})");
    ASSERT_EQ(chmod((m_directory / "state/ids.json").c_str(), 0), 0);
    ASSERT_EQ(chmod(m_directory.Path().c_str(), 0777), 0);
    // access() asks for the real user.
    ASSERT_EQ(geteuid() == 0 ? setreuid(65534, 0) : 0, 0);
    m_recorder.Clear();
    EXPECT_FALSE(Download(DataOf(kNewProject)));
    EXPECT_EQ(Lines(), std::vector<std::string>{"ERROR CreateFileWithKnxData(): Download refused, " +
                                                m_directory / "project.json" +
                                                " stays as it was: " + m_directory / "state/ids.json" +
                                                ": cannot be read: Permission denied"});
    ASSERT_EQ(geteuid() == 0 ? setreuid(0, 0) : 0, 0);
    EXPECT_EQ(Project(), kOldProject);
}

TEST_F(DownloadRefusal, DirectoryThatMayNotBeWritten) {
    Start();
    ASSERT_EQ(chmod(m_directory.Path().c_str(), 0555), 0);
    {
        const OrdinaryUser user;
        ExpectRefused(DataOf(kNewProject),
                      m_directory / "project.json.new" + ": cannot be created: Permission denied");
    }
    ASSERT_EQ(chmod(m_directory.Path().c_str(), 0755), 0);
}

TEST_F(DownloadRefusal, DirectoryThatIsNotThere) {
    Start(R"({"project": "nowhere/project.json"})");
    EXPECT_FALSE(Download(DataOf(kNewProject)));
    EXPECT_EQ(Lines(), std::vector<std::string>{"ERROR CreateFileWithKnxData(): Download refused, " +
                                                m_directory / "nowhere/project.json" + " stays as it was: " +
                                                m_directory / "nowhere/project.json.new" +
                                                ": cannot be created: No such file or directory"});
    EXPECT_FALSE(std::filesystem::exists(m_directory / "nowhere"));
}

TEST_F(DownloadRefusal, DirectoryInThePlaceOfTheProject) {
    std::filesystem::remove(m_directory / "project.json");
    std::filesystem::create_directory(m_directory / "project.json");
    Start();
    ExpectRefused(DataOf(kNewProject), m_directory / "project.json" + ": is a directory");
}

TEST_F(DownloadRefusal, SomethingElseInThePlaceOfTheTemporaryFile) {
    Start();
    std::filesystem::create_directory(m_directory / "project.json.new");
    ExpectRefused(DataOf(kNewProject),
                  m_directory / "project.json.new" + ": cannot be created: Is a directory");
    std::filesystem::remove(m_directory / "project.json.new");
    std::filesystem::create_symlink(m_directory / "project.json", m_directory / "project.json.new");
    ExpectRefused(DataOf(kNewProject), m_directory / "project.json.new" +
                                           ": cannot be created: Too many levels of symbolic links");
    std::filesystem::remove(m_directory / "project.json.new");
    ASSERT_EQ(mkfifo((m_directory / "project.json.new").c_str(), 0600), 0);
    ExpectRefused(DataOf(kNewProject), m_directory / "project.json.new" + ": is no file");
}

TEST_F(DownloadRefusal, AnotherDownloadToTheSameFile) {
    Start();
    m_directory.Write("project.json.new", "half of another proj");
    const int fd = open((m_directory / "project.json.new").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(fd, LOCK_EX), 0);
    ExpectRefused(DataOf(kNewProject),
                  m_directory / "project.json.new" + ": is being written by another download");
    close(fd);
    EXPECT_TRUE(Download(DataOf(kNewProject)));
}

TEST_F(DownloadRefusal, DiskThatIsFull) {
    Start();
    const auto former = std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlimit small{100, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    ExpectRefused(DataOf(kNewProject),
                  m_directory / "project.json.new" + ": cannot be written: File too large");
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    std::signal(SIGXFSZ, former);
}

TEST_F(DownloadRefusal, FileThatCannotBeBroughtToTheDisk) {
    Start();
    SystemCalls::onFsync = [](int) { return EIO; };
    ExpectRefused(DataOf(kNewProject),
                  m_directory / "project.json.new" + ": cannot be brought to the disk: Input/output error");
}

TEST_F(DownloadRefusal, FileThatTheDeviceStackCouldNotLoad) {
    Start();
    SystemCalls::onFsync = [](int fd) { return ftruncate(fd, 10) == 0 ? 0 : errno; };
    ExpectRefused(DataOf(kNewProject), m_directory / "project.json.new" + ": 2:9: not JSON: incomplete JSON");
}

TEST_F(DownloadRefusal, FileThatIsNotWhatWasWritten) {
    Start();
    SystemCalls::onFsync = [](int fd) {
        const std::string_view other(kOldProject);
        return ftruncate(fd, 0) == 0 && pwrite(fd, other.data(), other.size(), 0) > 0 ? 0 : errno;
    };
    ExpectRefused(DataOf(kNewProject), m_directory / "project.json.new" + ": is not what was written");
}

TEST_F(DownloadRefusal, FileThatCannotBeRenamed) {
    Start();
    SystemCalls::onRename = [](const std::string&, const std::string&) { return EACCES; };
    ExpectNothingLeftOf(DataOf(kNewProject),
                        m_directory / "project.json" + ": cannot be replaced: Permission denied");
    EXPECT_EQ(m_recorder.Count("announce"), 1u);
}

TEST_F(DownloadRefusal, AnnouncementThatThrows) {
    Start();
    m_announce = [] { throw std::runtime_error("no device stack"); };
    ExpectRefused(DataOf(kNewProject), "no device stack");
}

TEST_F(DownloadRefusal, AnnouncementThatIsInterrupted) {
    Start();
    m_announce = [] { throw boost::thread_interrupted(); };
    ExpectRefused(DataOf(kNewProject), "the announcement was broken off");
}
