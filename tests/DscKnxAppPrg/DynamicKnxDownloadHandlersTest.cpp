// The question to several download handlers, and what becomes of the callback.
#include "DynamicKnxDownloadHandlers.h"
#include "KnxStack/BinaryData.h"
#include "World.h"

#include <memory>

namespace {

class DownloadHandlersTest : public World {
protected:
    /// Loads the libraries `names`; the record then is empty.
    void Load(std::initializer_list<const char*> names) {
        RegisterDownloadHandlers(names);
        ASSERT_TRUE(set.Init("", files / "user", "dscknxdownload"));
        recorder.Clear();
    }

    /// Asks with a callback whose calls and whose end are recorded.
    bool Create() {
        std::shared_ptr<void> token(nullptr, [this](void*) { recorder.Add("callback destroyed"); });
        std::function<void()> announce = [this, token = std::move(token)] { recorder.Add("called"); };
        const bool created =
            set.CreateFileWithKnxData({{7, {}}}, KnxStack::BinaryData({0xff}), std::move(announce),
                                      {.configurationChangeRaised = true}, {{2, {2, 1}}, {9, {9, 1}}});
        recorder.Add(created ? "created" : "not created");
        return created;
    }

    DynamicKnxDownloadHandlers set;
};

TEST_F(DownloadHandlersTest, Callback_EndsWithTheFirstCall) {
    plugins.Download("DownloadA").announcements = 2;
    plugins.Download("DownloadB").announcements = 2;
    plugins.Download("DownloadB").creates = true;
    Load({"DownloadA", "DownloadB"});
    EXPECT_TRUE(Create());
    ExpectRecord("host", R"(
        download DownloadA CreateFileWithKnxData({7: 0}, ff, announce, raised, {2, 9})
        download DownloadA announces
        called
        download DownloadA announces
        called
        callback destroyed
        download DownloadB CreateFileWithKnxData({7: 0}, ff, nothing, raised, {2, 9})
        created
    )");
}

TEST_F(DownloadHandlersTest, FirstWhoCreates_EndsTheWalk) {
    plugins.Download("DownloadA").creates = true;
    plugins.Download("DownloadB").creates = true;
    Load({"DownloadA", "DownloadB"});
    EXPECT_TRUE(Create());
    EXPECT_THAT(recorder.LinesWith("DownloadB"), testing::IsEmpty());
}

TEST_F(DownloadHandlersTest, NobodyCreates_IsFalse) {
    Load({"DownloadA", "DownloadB"});
    EXPECT_FALSE(Create());
    EXPECT_THAT(recorder.LinesWith("CreateFileWithKnxData"), testing::SizeIs(2));
}

TEST_F(DownloadHandlersTest, WithoutHandlers_IsFalse) {
    Load({});
    EXPECT_FALSE(Create());
    ExpectRecord("host", R"(
        callback destroyed
        not created
    )");
}

TEST_F(DownloadHandlersTest, HandlerThatDeclined_IsPassedOver) {
    plugins.Download("DownloadA").faults.Refuse("CreateHandler");
    plugins.Download("DownloadB").creates = true;
    Load({"DownloadA", "DownloadB"});
    EXPECT_TRUE(Create());
    ExpectRecord("host", R"(
        download DownloadB CreateFileWithKnxData({7: 0}, ff, announce, raised, {2, 9})
        callback destroyed
        created
    )");
}

TEST_F(DownloadHandlersTest, HandlerThatThrows_EndsTheWalkWithItsException) {
    plugins.Download("DownloadA").faults.Throw("CreateFileWithKnxData", "no");
    Load({"DownloadA", "DownloadB"});
    try {
        Create();
        FAIL() << "nothing was thrown";
    } catch (const std::exception& error) {
        EXPECT_STREQ(error.what(), "no");
    }
    ExpectRecord("host", R"(
        download DownloadA CreateFileWithKnxData({7: 0}, ff, announce, raised, {2, 9})
        callback destroyed
    )");
}

} // namespace
