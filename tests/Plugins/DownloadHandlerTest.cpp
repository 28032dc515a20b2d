#include "DownloadHandlerFixture.h"

#include "ProjectFile/Project.h"

#include <boost/thread/thread.hpp>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using Texts = std::vector<std::string>;

namespace {

/// The project that the file holds.
std::shared_ptr<const ProjectFile::Project> Loaded(const std::string& file) {
    const auto loaded = ProjectFile::LoadProject(file);
    EXPECT_EQ(loaded.Error(), "");
    return loaded.project;
}

std::shared_ptr<const ProjectFile::Project> Parsed(const std::string& text) {
    return ProjectFile::ParseProject(text, "p.json").project;
}

} // namespace

TEST_F(DownloadHandlerTest, NewProjectIsAnnouncedAndPutInPlace) {
    Start();
    const auto before = Files();
    EXPECT_TRUE(Download(DataOf(kNewProject)));
    EXPECT_EQ(*Loaded(m_directory / "project.json"), *Parsed(kNewProject));
    EXPECT_EQ(Files().size(), before.size());
    EXPECT_EQ(Lines(),
              (Texts{"announce", "INFO CreateFileWithKnxData(): Project " + m_directory / "project.json" +
                                     " comes from the download; it has 10 data points."}));
}

TEST_F(DownloadHandlerTest, TheWholeHouseArrivesUnchanged) {
    const auto house = Loaded(HOUSE_EXAMPLE "/project.json");
    for (std::uint16_t co = 1; co <= 62; ++co) {
        m_coDescriptors[co] = {co, 1};
    }
    Start();
    EXPECT_TRUE(Download(DataOf(ProjectFile::WriteProject(*house))));
    EXPECT_EQ(*Loaded(m_directory / "project.json"), *house);
}

TEST_F(DownloadHandlerTest, RenamingIsTheOnlyStepThatAnybodySeesAndEverythingIsOnTheDiskAroundIt) {
    Start();
    struct stat target {};
    SystemCalls::onFsync = [&](int fd) {
        struct stat synced {};
        EXPECT_EQ(fstat(fd, &synced), 0);
        m_recorder.Add(S_ISDIR(synced.st_mode) ? "fsync directory" : "fsync file");
        if (S_ISREG(synced.st_mode)) {
            target = synced;
        }
        return 0;
    };
    SystemCalls::onRename = [&](const std::string& from, const std::string& to) {
        m_recorder.Add("rename");
        EXPECT_EQ(from, m_directory / "project.json.new");
        EXPECT_EQ(to, m_directory / "project.json");
        EXPECT_EQ(Project(), kOldProject);
        EXPECT_EQ(*Loaded(from), *Parsed(kNewProject));
        struct stat renamed {};
        EXPECT_EQ(stat(from.c_str(), &renamed), 0);
        EXPECT_EQ(renamed.st_ino, target.st_ino); // what was brought to the disk
        EXPECT_EQ(renamed.st_size, target.st_size);
        return 0;
    };
    m_announce = [this] {
        m_recorder.Add("announce");
        EXPECT_EQ(Project(), kOldProject);
    };
    EXPECT_TRUE(Download(DataOf(kNewProject)));
    Texts lines = Lines();
    lines.pop_back();
    EXPECT_EQ(lines, (Texts{"fsync file", "announce", "rename", "fsync directory"}));
}

TEST_F(DownloadHandlerTest, ProjectInForceIsNotWrittenAgainAndNothingIsAnnounced) {
    Start();
    struct stat before {};
    struct stat after {};
    ASSERT_EQ(stat((m_directory / "project.json").c_str(), &before), 0);
    // Another layout of the same project.
    EXPECT_FALSE(Download(DataOf(ProjectFile::WriteProject(*Parsed(kOldProject)))));
    EXPECT_EQ(Lines(), Texts{"INFO CreateFileWithKnxData(): The download brings the project that " +
                             m_directory / "project.json" + " has already."});
    EXPECT_EQ(Project(), kOldProject);
    ASSERT_EQ(stat((m_directory / "project.json").c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
}

TEST_F(DownloadHandlerTest, SecondCallWithTheSameDataChangesNothing) {
    Start();
    EXPECT_TRUE(Download(DataOf(kNewProject)));
    const auto files = Files();
    m_recorder.Clear();
    EXPECT_FALSE(Download(DataOf(kNewProject)));
    EXPECT_EQ(Files(), files);
    EXPECT_EQ(m_recorder.Count("announce"), 0u);
    EXPECT_TRUE(Download(DataOf(kOldProject)));
    EXPECT_EQ(*Loaded(m_directory / "project.json"), *Parsed(kOldProject));
}

TEST_F(DownloadHandlerTest, ChangeThatIsAnnouncedAlreadyIsAnnouncedAgain) {
    // The former change may end at any moment, and then nobody would wait for this one.
    m_appData.configurationChangeRaised = true;
    Start();
    EXPECT_TRUE(Download(DataOf(kNewProject)));
    EXPECT_EQ(m_recorder.Count("announce"), 1u);
}

TEST_F(DownloadHandlerTest, WithoutACallbackTheProjectIsReplacedWithAWarning) {
    m_announce = nullptr;
    Start();
    EXPECT_TRUE(Download(DataOf(kNewProject)));
    EXPECT_EQ(*Loaded(m_directory / "project.json"), *Parsed(kNewProject));
    ASSERT_EQ(Lines().size(), 2u);
    EXPECT_EQ(Lines().front(),
              "WARN CreateFileWithKnxData(): The change is announced to nobody, for another plug-in "
              "stands before this one; the application program learns of it at its next start.");
}

TEST_F(DownloadHandlerTest, WithoutACallbackAnAnnouncedChangeNeedsNoWarning) {
    m_announce = nullptr;
    m_appData.configurationChangeRaised = true;
    Start();
    EXPECT_TRUE(Download(DataOf(kNewProject)));
    EXPECT_EQ(*Loaded(m_directory / "project.json"), *Parsed(kNewProject));
    EXPECT_EQ(Lines().size(), 1u);
}

TEST_F(DownloadHandlerTest, MissingOrRefusedProjectFileIsReplaced) {
    Start();
    for (const char* former : {"", "not JSON"}) {
        std::filesystem::remove(m_directory / "project.json");
        if (*former != '\0') {
            m_directory.Write("project.json", former);
        }
        EXPECT_TRUE(Download(DataOf(kNewProject))) << former;
        EXPECT_EQ(*Loaded(m_directory / "project.json"), *Parsed(kNewProject));
    }
}

TEST_F(DownloadHandlerTest, FileBehindALinkIsReplacedAndTheLinkStays) {
    std::filesystem::create_directory(m_directory / "data");
    std::filesystem::rename(m_directory / "project.json", m_directory / "data/real.json");
    std::filesystem::create_symlink("data/real.json", m_directory / "project.json");
    Start();
    EXPECT_TRUE(Download(DataOf(kNewProject)));
    EXPECT_EQ(std::filesystem::read_symlink(m_directory / "project.json"), "data/real.json");
    EXPECT_EQ(*Loaded(m_directory / "data/real.json"), *Parsed(kNewProject));
    EXPECT_EQ(Files().size(), 4u); // the link, the directory, the project, download.json
}

TEST_F(DownloadHandlerTest, LinkToAFileThatIsNotThereYetStays) {
    std::filesystem::create_directory(m_directory / "data");
    std::filesystem::remove(m_directory / "project.json");
    std::filesystem::create_symlink(m_directory / "data/real.json", m_directory / "project.json");
    Start();
    EXPECT_TRUE(Download(DataOf(kNewProject)));
    EXPECT_TRUE(std::filesystem::is_symlink(m_directory / "project.json"));
    EXPECT_EQ(*Loaded(m_directory / "data/real.json"), *Parsed(kNewProject));
}

TEST_F(DownloadHandlerTest, WhoMayReadTheOldProjectMayReadTheNewOne) {
    Start();
    ASSERT_EQ(chmod((m_directory / "project.json").c_str(), 0660), 0);
    EXPECT_TRUE(Download(DataOf(kNewProject)));
    struct stat replaced {};
    ASSERT_EQ(stat((m_directory / "project.json").c_str(), &replaced), 0);
    EXPECT_EQ(replaced.st_mode & 07777, 0660u);
}

TEST_F(DownloadHandlerTest, WhatAPowerFailureLeftBehindIsOverwritten) {
    Start();
    m_directory.Write("project.json.new", std::string(100000, 'x'));
    EXPECT_TRUE(Download(DataOf(kNewProject)));
    EXPECT_EQ(*Loaded(m_directory / "project.json"), *Parsed(kNewProject));
    EXPECT_FALSE(std::filesystem::exists(m_directory / "project.json.new"));
}

TEST_F(DownloadHandlerTest, ProcessThatEndsAtAnyStepLeavesTheOldProjectOrTheWholeNewOne) {
    Start();
    const auto data = DataOf(kNewProject);
    for (const int last : {1, 2, 3, 4}) { // fsync of the file, announcement, renaming, fsync of the directory
        const pid_t child = fork();
        if (child == 0) {
            int step = 0;
            const auto endAt = [&step, last] {
                if (++step == last) {
                    _exit(0);
                }
                return 0;
            };
            SystemCalls::onFsync = [endAt](int) { return endAt(); };
            SystemCalls::onRename = [endAt](const std::string&, const std::string&) { return endAt(); };
            m_announce = [endAt] { endAt(); };
            Download(data);
            _exit(1);
        }
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFEXITED(status));
        ASSERT_EQ(WEXITSTATUS(status), 0) << last;
        if (last < 4) {
            EXPECT_EQ(Project(), kOldProject) << last;
        } else {
            EXPECT_EQ(*Loaded(m_directory / "project.json"), *Parsed(kNewProject));
        }
    }
    m_directory.Write("project.json", kOldProject);
    EXPECT_TRUE(Download(data));
    EXPECT_EQ(Files().size(), 2u); // and the next one leaves nothing behind
}

TEST_F(DownloadHandlerTest, WhatAnotherDownloadBeginsBehindTheRenamingIsLeftAlone) {
    Start();
    int calls = 0;
    SystemCalls::onFsync = [&](int) {
        if (++calls == 2) {
            m_directory.Write("project.json.new", "of another");
        }
        return 0;
    };
    EXPECT_TRUE(Download(DataOf(kNewProject)));
    EXPECT_EQ(m_directory.Read("project.json.new"), "of another");
}

TEST_F(DownloadHandlerTest, InterruptedThreadReplacesTheWholeFile) {
    Start();
    bool created = false;
    bool interrupted = false;
    boost::thread thread([&] {
        while (!boost::this_thread::interruption_requested()) {
            boost::this_thread::yield();
        }
        created = Download(DataOf(kNewProject));
        interrupted = boost::this_thread::interruption_requested();
    });
    thread.interrupt();
    thread.join();
    EXPECT_TRUE(created);
    EXPECT_TRUE(interrupted); // for the thread's owner to see
    EXPECT_EQ(*Loaded(m_directory / "project.json"), *Parsed(kNewProject));
}

TEST_F(DownloadHandlerTest, DirectoryThatCannotBeBroughtToTheDiskIsAWarningBehindTheSuccess) {
    Start();
    int calls = 0;
    SystemCalls::onFsync = [&calls](int) { return ++calls == 2 ? EIO : 0; };
    EXPECT_TRUE(Download(DataOf(kNewProject)));
    EXPECT_EQ(*Loaded(m_directory / "project.json"), *Parsed(kNewProject));
    EXPECT_EQ(Lines().back(),
              "WARN CreateFileWithKnxData(): The former project may return at a power failure: " +
                  m_directory.Path() + ": cannot be brought to the disk: Input/output error");
}

TEST_F(DownloadHandlerTest, TwoInstancesWithTwoDirectoriesReplaceTheirOwnProjects) {
    for (const char* instance : {"one/", "two/"}) {
        m_directory.Write(std::string(instance) + "project.json", kOldProject);
        m_directory.Write(std::string(instance) + "download.json", R"({"project": "project.json"})");
    }
    Create(m_directory / "one/download.json");
    ASSERT_TRUE(m_handler->Initialize());
    EXPECT_TRUE(Download(DataOf(kNewProject)));
    EXPECT_EQ(m_directory.Read("two/project.json"), kOldProject);
    EXPECT_EQ(Project(), kOldProject);
    Create(m_directory / "two/download.json");
    ASSERT_TRUE(m_handler->Initialize());
    EXPECT_TRUE(Download(DataOf(kNewProject)));
    EXPECT_EQ(*Loaded(m_directory / "one/project.json"), *Parsed(kNewProject));
    EXPECT_EQ(*Loaded(m_directory / "two/project.json"), *Parsed(kNewProject));
}

TEST_F(DownloadHandlerTest, RelativePathCountsFromTheDirectoryAtCreation) {
    m_directory.Write("download.json", R"({"project": "project.json"})");
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(m_directory.Path());
    Create("download.json");
    std::filesystem::current_path(before);
    ASSERT_TRUE(m_handler->Initialize());
    EXPECT_TRUE(Download(DataOf(kNewProject)));
    EXPECT_EQ(*Loaded(m_directory / "project.json"), *Parsed(kNewProject));
}

TEST_F(DownloadHandlerTest, ConfigurationFaultsAreOneErrorLine) {
    const std::string file = m_directory / "download.json";
    Create("");
    EXPECT_FALSE(m_handler->Initialize());
    EXPECT_EQ(Lines(),
              Texts{"ERROR Initialize(): No configuration file; name one in the attribute \"ConfigFile\" of "
                    "\"knxappprghandlers.xml\"."});
    Create(file);
    m_recorder.Clear();
    EXPECT_FALSE(m_handler->Initialize());
    EXPECT_EQ(Lines(), Texts{"ERROR Initialize(): Configuration refused: " + file +
                             ": cannot be read: No such file or directory"});
    const std::pair<const char*, const char*> kFaults[] = {
        {"", "1:1: not JSON: incomplete JSON"},
        {"[]", "/: must be an object with \"project\""},
        {"{}", "/: \"project\" is missing"},
        {R"({"project": ""})", "/project: must be a path, not an empty text"},
        {R"({"project": 1})", "/project: must be a text in quotation marks: \"1\""},
        {R"({"project": "a", "project": "b"})", "1:26: member \"project\" stands twice in one object"},
        {R"({"project": "a", "projekt": "b"})",
         "/projekt: unknown member \"projekt\"; did you mean \"project\"?"},
        {R"({"project": "a", "stateDirectory": ""})", "/stateDirectory: must be a path, not an empty text"},
        {R"({"proj": 1})", "/proj: unknown member \"proj\"; known are: project, stateDirectory (and 1 more)"},
    };
    for (const auto& [text, error] : kFaults) {
        m_directory.Write("download.json", text);
        m_recorder.Clear();
        Create(file);
        EXPECT_FALSE(m_handler->Initialize()) << text;
        EXPECT_EQ(Lines(), Texts{"ERROR Initialize(): Configuration refused: " + file + ": " + error});
    }
    EXPECT_EQ(Project(), kOldProject);
}
