#include "DeviceStackServer/StateFiles.h"

#include "../support/Daemon.h"

#include <gtest/gtest.h>

#include <atomic>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace DeviceStackServer {
namespace {

StateImage ImageOf(const std::string& value) {
    StateImage image;
    image.values["urn:oxn:dp:house:A"] = {value, "x", Milliseconds(0)};
    return image;
}

/// How often a file of the name was put in place.
int CountReplacements(int inotify, const std::string& name) {
    alignas(inotify_event) char buffer[65536];
    int count = 0;
    const auto size = ::read(inotify, buffer, sizeof buffer);
    for (ssize_t at = 0; at < size;) {
        const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
        count += (event->mask & IN_MOVED_TO) != 0 && name == event->name ? 1 : 0;
        at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
    return count;
}

TEST(StateFiles, OnASlowDiskOnlyTheNewestContentWaits) {
    TemporaryDirectory directory;
    const auto fresh = directory / "values.json.new";
    // The disk is slow until somebody reads from it, and fails then.
    ASSERT_EQ(::mkfifo(fresh.c_str(), 0600), 0);
    std::atomic<int> failures = 0;
    StateFiles files(directory.Path(), [&] { ++failures; });
    ASSERT_EQ(files.Open(), "");
    const int inotify = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    // With IN_CREATE, because equal events that follow one another are told as one.
    ASSERT_GE(::inotify_add_watch(inotify, directory.Path().c_str(), IN_MOVED_TO | IN_CREATE), 0);

    files.SaveValues(ImageOf(std::string(1024 * 1024, '1'))); // more than the pipe holds
    const int pipe = ::open(fresh.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(pipe, 0); // from here the first content is being written
    for (int i = 2; i < 100; ++i)
        files.SaveValues(ImageOf(std::to_string(i)));
    char buffer[65536];
    while (::read(pipe, buffer, sizeof buffer) > 0) {
    }
    ::close(pipe);
    files.Finish();

    EXPECT_EQ(failures, 1); // the first one: a pipe cannot be brought to the disk
    EXPECT_EQ(CountReplacements(inotify, "values.json"), 1);
    StateImage image;
    EXPECT_EQ(StateFiles(directory.Path(), [] {}).Read(Milliseconds(0), image), "");
    EXPECT_EQ(image, ImageOf("99"));
    ::close(inotify);
}

TEST(StateFiles, EachFileHasAContentOfItsOwn) {
    TemporaryDirectory directory;
    auto image = ImageOf("1");
    image.ids["urn:oxn:dp:house:A"] = 3001;
    {
        StateFiles files(directory.Path(), [] { ADD_FAILURE(); });
        ASSERT_EQ(files.Open(), "");
        files.SaveIds(image);
        files.SaveValues(image);
        files.Finish();
    }
    StateImage found;
    EXPECT_EQ(StateFiles(directory.Path(), [] {}).Read(Milliseconds(0), found), "");
    EXPECT_EQ(found, image);
}

} // namespace
} // namespace DeviceStackServer
