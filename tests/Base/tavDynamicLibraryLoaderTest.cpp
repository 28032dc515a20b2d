#include "Tav/tavDynamicLibraryLoader.h"
#include "../support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace {

using Loader = tavDynamicLibraryLoader;

constexpr const char* kLoadedFile = LOADED_LIBRARY;         // beside libTavBase
constexpr const char* kIncompleteFile = INCOMPLETE_LIBRARY; // elsewhere

// What the system says when the test itself loads the file.
std::string SystemsWords(const std::string& path) {
    EXPECT_EQ(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL), nullptr);
    const auto* const words = dlerror();
    return words != nullptr ? words : "";
}

class LoaderTest : public testing::Test {
protected:
    std::string WriteFile(const std::string& content) const {
        const auto path = m_directory / "broken.so";
        std::ofstream(path) << content;
        return path;
    }

    const TestSupport::TemporaryDirectory m_directory;
};

TEST_F(LoaderTest, LoadsByPathAndFindsTheExportedFunction) {
    const auto before = Loader::tavGetLastError();
    auto* const handle = Loader::tavLoadLibrary(kLoadedFile);
    ASSERT_NE(handle, nullptr) << Loader::tavGetLastError();
    const auto answer = reinterpret_cast<int (*)()>(Loader::tavGetProcAddr(handle, "BaseTestsAnswer"));
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(answer(), 42);
    EXPECT_EQ(Loader::tavGetLastError(), before);
    Loader::tavFreeLibrary(handle);
}

TEST_F(LoaderTest, FindsABareFileNameBesideThePlatformsLibraries) {
    const auto name = std::filesystem::path(kLoadedFile).filename();
    std::filesystem::current_path(m_directory.Path()); // not because of where the test runs
    auto* const handle = Loader::tavLoadLibrary(name);
    ASSERT_NE(handle, nullptr) << Loader::tavGetLastError();
    auto* const address = Loader::tavGetProcAddr(handle, "BaseTestsAnswer");
    Dl_info info{};
    ASSERT_NE(dladdr(address, &info), 0);
    EXPECT_TRUE(std::filesystem::equivalent(info.dli_fname, kLoadedFile)) << info.dli_fname;
    Loader::tavFreeLibrary(handle);
}

TEST_F(LoaderTest, FreeUnloads) {
    auto* const handle = Loader::tavLoadLibrary(kLoadedFile);
    ASSERT_NE(handle, nullptr) << Loader::tavGetLastError();
    auto* const loaded = dlopen(kLoadedFile, RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(loaded, nullptr);
    dlclose(loaded);
    Loader::tavFreeLibrary(handle);
    EXPECT_EQ(dlopen(kLoadedFile, RTLD_NOW | RTLD_NOLOAD), nullptr);
    Loader::tavFreeLibrary(nullptr);
}

TEST_F(LoaderTest, SymbolsServeNoOtherLibrary) {
    auto* const handle = Loader::tavLoadLibrary(kLoadedFile);
    ASSERT_NE(handle, nullptr) << Loader::tavGetLastError();
    EXPECT_EQ(dlsym(RTLD_DEFAULT, "BaseTestsAnswer"), nullptr);
    Loader::tavFreeLibrary(handle);
}

TEST_F(LoaderTest, MissingFileIsReportedInTheSystemsWords) {
    const auto path = m_directory / "missing.so";
    EXPECT_EQ(Loader::tavLoadLibrary(path), nullptr);
    const auto error = Loader::tavGetLastError();
    EXPECT_EQ(error, SystemsWords(path));
    EXPECT_NE(error.find(path), std::string::npos) << error;
    EXPECT_NE(error.find("No such file or directory"), std::string::npos) << error;
}

TEST_F(LoaderTest, MissingBareFileNameIsReportedByName) {
    EXPECT_EQ(Loader::tavLoadLibrary("libBaseTestsMissing.so"), nullptr);
    EXPECT_NE(Loader::tavGetLastError().find("libBaseTestsMissing.so"), std::string::npos);
}

TEST_F(LoaderTest, BrokenFileIsReportedInTheSystemsWords) {
    for (const auto& content : {std::string(), std::string(5000, 'x'), std::string("\x7F") + "ELF"}) {
        const auto path = WriteFile(content);
        EXPECT_EQ(Loader::tavLoadLibrary(path), nullptr);
        const auto error = Loader::tavGetLastError();
        EXPECT_EQ(error, SystemsWords(path));
        EXPECT_NE(error.find(path), std::string::npos) << error;
    }
}

TEST_F(LoaderTest, IncompleteLibraryFailsAtLoadingAndNamesWhatIsMissing) {
    EXPECT_EQ(Loader::tavLoadLibrary(kIncompleteFile), nullptr);
    const auto error = Loader::tavGetLastError();
    EXPECT_NE(error.find("BaseTestsNobodyHasThis"), std::string::npos) << error;
}

TEST_F(LoaderTest, MissingSymbolIsReportedByName) {
    auto* const handle = Loader::tavLoadLibrary(kLoadedFile);
    ASSERT_NE(handle, nullptr) << Loader::tavGetLastError();
    EXPECT_EQ(Loader::tavGetProcAddr(handle, "BaseTestsNoSuchSymbol"), nullptr);
    const auto error = Loader::tavGetLastError();
    EXPECT_NE(error.find("BaseTestsNoSuchSymbol"), std::string::npos) << error;
    EXPECT_NE(Loader::tavGetProcAddr(handle, "BaseTestsAnswer"), nullptr);
    EXPECT_EQ(Loader::tavGetLastError(), error);
    Loader::tavFreeLibrary(handle);
}

TEST_F(LoaderTest, TheProgramItselfIsNoLibrary) {
    EXPECT_EQ(Loader::tavLoadLibrary(""), nullptr);
    EXPECT_EQ(Loader::tavGetLastError(), "no library is named");
    EXPECT_EQ(Loader::tavGetProcAddr(nullptr, "malloc"), nullptr);
    EXPECT_EQ(Loader::tavGetLastError(), "no library is loaded");
}

TEST_F(LoaderTest, EachThreadHasItsOwnLastError) {
    EXPECT_EQ(Loader::tavLoadLibrary(m_directory / "missing-here.so"), nullptr);
    std::string before = "left over";
    std::string after;
    std::thread([&] {
        before = Loader::tavGetLastError();
        Loader::tavLoadLibrary(m_directory / "missing-there.so");
        after = Loader::tavGetLastError();
    }).join();
    EXPECT_EQ(before, "");
    EXPECT_NE(after.find("missing-there.so"), std::string::npos);
    EXPECT_NE(Loader::tavGetLastError().find("missing-here.so"), std::string::npos);
}

} // namespace
