// Messages of the group address translation as telegrams.
#include "GroupAddressTranslationHandlerTest.h"

#include <log4cplus/logger.h>

#include <fmt/format.h>

namespace {

using TestSupport::Bits;
using TestSupport::FakeGroupObject;

struct GoodMessage {
    const char* name;
    std::string_view message;
    const char* telegram;
};

class GoodMessages : public TranslationHandlerTest, public testing::WithParamInterface<GoodMessage> {
protected:
    GoodMessages() {
        service.objects[18] = FakeGroupObject(1);
        service.objects[19] = FakeGroupObject(8);
        service.objects[300] = FakeGroupObject(16);
        service.objects[0xABCD] = FakeGroupObject(24);
        service.objects[0xFFFF] = FakeGroupObject(4);
    }
};

TEST_P(GoodMessages, GoToTheBus) {
    EXPECT_TRUE(handler.OnMessageReceived(GetParam().message));
    ExpectRecord("host", std::string("service ") + GetParam().telegram + " -> true");
}

constexpr char kWithZero[] = "?0012\0x";

const GoodMessage kGoodMessages[] = {
    {"Write", "!00120101", "SendGroupValue(18, 01/1, 0)"},
    {"Response", "#012c100c1a", "SendGroupValue(300, 0c1a/16, 3)"},
    {"Read", "?0005", "SendReadRequest(5)"},
    {"ReadWithMoreBehind", "?0007XYZ", "SendReadRequest(7)"},
    {"ReadWithAValueBehind", "?00120101", "SendReadRequest(18)"},
    {"ReadWithAZeroByteBehind", {kWithZero, 7}, "SendReadRequest(18)"},
    {"ReadOfACoThatDoesNotExist", "?0BAD", "SendReadRequest(2989)"},
    {"ReadOfTheLastCo", "?ffff", "SendReadRequest(65535)"},
    {"UpperCaseDigits", "!ABCD18AB01FE", "SendGroupValue(43981, ab01fe/24, 0)"},
    {"LowerCaseDigits", "!abcd18ab01fe", "SendGroupValue(43981, ab01fe/24, 0)"},
    {"WriteToTheLastCo", "!FFFF040F", "SendGroupValue(65535, 0f/4, 0)"},
    {"BitsBeyondTheSize", "!001201FF", "SendGroupValue(18, ff/1, 0)"},
    {"CoThatEndsAtALetter", "!12g40101", "SendGroupValue(18, 01/1, 0)"},
    {"CoThatEndsAtASpace", "?12  ", "SendReadRequest(18)"},
    {"CoOfOneDigit", "?1xyz", "SendReadRequest(1)"},
    {"SizeThatEndsAtALetter", "!00121g01", "SendGroupValue(18, 01/1, 0)"},
    {"ByteThatEndsAtALetter", "!0013080G", "SendGroupValue(19, 00/8, 0)"},
    {"ByteOfOneDigit", "!0013081z", "SendGroupValue(19, 01/8, 0)"},
    {"ByteThatBeginsWithALetter", "!001308G5", "SendGroupValue(19, 00/8, 0)"},
    {"ByteWithAnX", "!0013080x", "SendGroupValue(19, 00/8, 0)"},
    {"ByteWithASign", "!001308-1", "SendGroupValue(19, 00/8, 0)"},
    {"ByteWithALeadingSpace", "!001308 1", "SendGroupValue(19, 00/8, 0)"},
    {"BytesBehindAWrongOne", "#012c10zz7f", "SendGroupValue(300, 007f/16, 3)"},
};
INSTANTIATE_TEST_SUITE_P(TranslationHandlerTest, GoodMessages, testing::ValuesIn(kGoodMessages),
                         [](const auto& row) { return row.param.name; });

struct BadMessage {
    const char* name;
    std::string_view message;
    std::string_view line;
};

class BadMessages : public TranslationHandlerTest, public testing::WithParamInterface<BadMessage> {
protected:
    BadMessages() {
        service.objects[18] = FakeGroupObject(1);
        service.objects[19] = FakeGroupObject(8);
        service.objects[300] = FakeGroupObject(16);
    }
};

TEST_P(BadMessages, AreLoggedAndNotSent) {
    EXPECT_FALSE(handler.OnMessageReceived(GetParam().message));
    EXPECT_THAT(recorder.Lines(), testing::ElementsAre(GetParam().line));
}

constexpr char kZeroByte[] = "\0"
                             "0012";
constexpr char kZeroByteLine[] = "ERROR GroupAddressTranslation | Received message has invalid type '\0'.";

const BadMessage kBadMessages[] = {
    {"Empty", "", "ERROR GroupAddressTranslation | Received message is too short, minimal size is 5: "},
    {"OneCharacter", "!",
     "ERROR GroupAddressTranslation | Received message is too short, minimal size is 5: !"},
    {"FourCharacters", "?001",
     "ERROR GroupAddressTranslation | Received message is too short, minimal size is 5: ?001"},
    {"ShortAndOfWrongType", "x001",
     "ERROR GroupAddressTranslation | Received message is too short, minimal size is 5: x001"},
    {"Letter", "x0012", "ERROR GroupAddressTranslation | Received message has invalid type 'x'."},
    {"Dot", ".00120101", "ERROR GroupAddressTranslation | Received message has invalid type '.'."},
    {"LeadingSpace", " !00120101", "ERROR GroupAddressTranslation | Received message has invalid type ' '."},
    {"ZeroByteAsType", {kZeroByte, sizeof kZeroByte - 1}, {kZeroByteLine, sizeof kZeroByteLine - 1}},
    {"WriteToCoZero", "!00000101",
     "ERROR GroupAddressTranslation | Received message has invalid CO: !00000101"},
    {"ResponseOfCoZero", "#00000101",
     "ERROR GroupAddressTranslation | Received message has invalid CO: #00000101"},
    {"ReadOfCoZero", "?0000", "ERROR GroupAddressTranslation | Received message has invalid CO: ?0000"},
    {"CoZeroBeforeALetter", "!00g10101",
     "ERROR GroupAddressTranslation | Received message has invalid CO: !00g10101"},
    {"CoThatBeginsWithALetter", "!g1230101",
     "ERROR GroupAddressTranslation | Received message has invalid CO: !g1230101"},
    {"CoWithASign", "!-0120101",
     "ERROR GroupAddressTranslation | Received message has invalid CO: !-0120101"},
    {"CoWithAPlus", "!+0120101",
     "ERROR GroupAddressTranslation | Received message has invalid CO: !+0120101"},
    {"CoWithAnX", "!0x120101", "ERROR GroupAddressTranslation | Received message has invalid CO: !0x120101"},
    {"CoWithALeadingSpace", "! 0120101",
     "ERROR GroupAddressTranslation | Received message has invalid CO: ! 0120101"},
    {"CoZeroAndNothingElse", "!0000",
     "ERROR GroupAddressTranslation | Received message has invalid CO: !0000"},
    {"WriteWithoutSize", "!0012",
     "ERROR GroupAddressTranslation | Received message is missing size and value: !0012"},
    {"WriteWithHalfASize", "!00120",
     "ERROR GroupAddressTranslation | Received message is missing size and value: !00120"},
    {"ResponseWithoutSize", "#0012",
     "ERROR GroupAddressTranslation | Received message is missing size and value: #0012"},
    {"ResponseWithHalfASize", "#00121",
     "ERROR GroupAddressTranslation | Received message is missing size and value: #00121"},
    {"SizeZero", "!001200", "ERROR GroupAddressTranslation | Received message has invalid size: !001200"},
    {"SizeZeroWithAByte", "!00120001",
     "ERROR GroupAddressTranslation | Received message has invalid size: !00120001"},
    {"SizeThatIsNoNumber", "#0012zz01",
     "ERROR GroupAddressTranslation | Received message has invalid size: #0012zz01"},
    {"SizeWithASign", "!0012-101",
     "ERROR GroupAddressTranslation | Received message has invalid size: !0012-101"},
    {"SizeWithAnX", "!00120x01",
     "ERROR GroupAddressTranslation | Received message has invalid size: !00120x01"},
    {"NoByte", "!001201", "ERROR GroupAddressTranslation | Received message has mismatching size: !001201"},
    {"HalfAByte", "!0012010",
     "ERROR GroupAddressTranslation | Received message has mismatching size: !0012010"},
    {"OneByteOfTwo", "#00121001",
     "ERROR GroupAddressTranslation | Received message has mismatching size: #00121001"},
    {"OneDigitTooMany", "!001201010",
     "ERROR GroupAddressTranslation | Received message has mismatching size: !001201010"},
    {"TrailingSpace", "!00120101 ",
     "ERROR GroupAddressTranslation | Received message has mismatching size: !00120101 "},
    {"TwoBytesOfOne", "!0013080101",
     "ERROR GroupAddressTranslation | Received message has mismatching size: !0013080101"},
    {"NineBitsInOneByte", "!00120901",
     "ERROR GroupAddressTranslation | Received message has mismatching size: !00120901"},
    {"SmallerThanTheCo", "!00130101",
     "ERROR GroupAddressTranslation | Received message for CO 19 has size of 1 bit but CO has size of 8 "
     "bit."},
    {"LargerThanTheCo", "#0012080a",
     "ERROR GroupAddressTranslation | Received message for CO 18 has size of 8 bit but CO has size of 1 "
     "bit."},
    {"SameBytesAsTheCoButFewerBits", "!012c0f0001",
     "ERROR GroupAddressTranslation | Received message for CO 300 has size of 15 bit but CO has size of 16 "
     "bit."},
    {"CoThatDoesNotExist", "!ffff0101",
     "ERROR GroupAddressTranslation | Received message for CO 65535 has size of 1 bit but CO has size of 0 "
     "bit."},
};
INSTANTIATE_TEST_SUITE_P(TranslationHandlerTest, BadMessages, testing::ValuesIn(kBadMessages),
                         [](const auto& row) { return row.param.name; });

TEST_F(TranslationHandlerTest, OneBitForACoOfEightBits_IsRefusedAndAByteIsSentAsFarAsItReads) {
    service.objects[18] = FakeGroupObject(8);
    EXPECT_FALSE(handler.OnMessageReceived("!00120101"));
    EXPECT_TRUE(handler.OnMessageReceived("!0012080G"));
    ExpectRecord("host", R"(
        ERROR GroupAddressTranslation | Received message for CO 18 has size of 1 bit but CO has size of 8 bit.
        service SendGroupValue(18, 00/8, 0) -> true
    )");
}

std::string WriteMessage(unsigned size, std::size_t digits) {
    return fmt::format("!0012{:02X}{}", size, std::string(digits, 'a'));
}

TEST_F(TranslationHandlerTest, EverySize_NeedsAsManyBytesAsItsBitsFill) {
    for (unsigned size = 1; size <= 255; ++size) {
        service.objects[18] = FakeGroupObject(size);
        const std::size_t digits = std::size_t{(size + 7) / 8} * 2;
        recorder.Clear();
        EXPECT_TRUE(handler.OnMessageReceived(WriteMessage(size, digits)));
        EXPECT_THAT(recorder.Lines(),
                    testing::ElementsAre(fmt::format("service SendGroupValue(18, {}/{}, 0) -> true",
                                                     std::string(digits, 'a'), size)));
        recorder.Clear();
        const std::array wrong{WriteMessage(size, digits - 1), WriteMessage(size, digits + 1),
                               WriteMessage(size, digits - 2), WriteMessage(size, digits + 2)};
        for (const std::string& message : wrong)
            EXPECT_FALSE(handler.OnMessageReceived(message));
        const std::string refused = "ERROR GroupAddressTranslation | Received message has mismatching size: ";
        EXPECT_THAT(recorder.Lines(), testing::ElementsAre(refused + wrong[0], refused + wrong[1],
                                                           refused + wrong[2], refused + wrong[3]));
    }
}

TEST_F(TranslationHandlerTest, TheLongestMessage_HasSeventyOneCharacters) {
    service.objects[18] = FakeGroupObject(255);
    const std::string message = WriteMessage(255, 64);
    ASSERT_EQ(message.size(), 71u);
    EXPECT_TRUE(handler.OnMessageReceived(message));
}

TEST_F(TranslationHandlerTest, ReceivingAsksNeitherForTheRangeNorWhetherItIsEnabled) {
    service.objects[18] = FakeGroupObject(1);
    for (const auto& range : {std::array<std::uint16_t, 2>{0, 0}, {100, 200}, {200, 100}}) {
        handler.SetRange(range);
        recorder.Clear();
        EXPECT_TRUE(handler.OnMessageReceived("!00120101"));
        EXPECT_TRUE(handler.OnMessageReceived("?0012"));
        ExpectRecord("host", R"(
            service SendGroupValue(18, 01/1, 0) -> true
            service SendReadRequest(18) -> true
        )");
    }
}

TEST_F(TranslationHandlerTest, ATelegramThatTheBusDoesNotTake_IsRefusedWithoutALineOfItsOwn) {
    service.objects[18] = FakeGroupObject(1);
    service.faults.Refuse("SendGroupValue");
    service.faults.Refuse("SendReadRequest");
    EXPECT_FALSE(handler.OnMessageReceived("!00120101"));
    EXPECT_FALSE(handler.OnMessageReceived("#00120101"));
    EXPECT_FALSE(handler.OnMessageReceived("?0012"));
    ExpectRecord("host", R"(
        service SendGroupValue(18, 01/1, 0) -> false
        service SendGroupValue(18, 01/1, 3) -> false
        service SendReadRequest(18) -> false
    )");
}

TEST_F(TranslationHandlerTest, ReceivingNeedsNeitherTargetNorClient) {
    handler.SetTargetName("");
    handler.Init(nullptr, &service);
    EXPECT_TRUE(handler.OnMessageReceived("?0012"));
    ExpectRecord("host", "service SendReadRequest(18) -> true");
}

TEST_F(TranslationHandlerTest, ARefusedMessage_ChangesNothing) {
    service.objects[18] = FakeGroupObject(1);
    handler.SetRange({10, 20});
    EXPECT_FALSE(handler.OnMessageReceived("!0012"));
    EXPECT_FALSE(handler.SendEvent(0, EventType::Read, nullptr));
    recorder.Clear();
    EXPECT_TRUE(handler.IsEnabled());
    EXPECT_TRUE(handler.IsGroupAddressTranslationCo(10));
    EXPECT_TRUE(handler.OnMessageReceived("!00120101"));
    EXPECT_TRUE(handler.OnGroupValueWrite(18, Bits(1, 1)));
    ExpectRecord("host", "service SendGroupValue(18, 01/1, 0) -> true\n" + Sent("!00120101"));
}

TEST_F(TranslationHandlerTest, WithErrorsSwitchedOff_RefusalsStayRefusals) {
    log4cplus::Logger logger = log4cplus::Logger::getInstance("GroupAddressTranslation");
    logger.setLogLevel(log4cplus::FATAL_LOG_LEVEL);
    EXPECT_FALSE(handler.OnMessageReceived("!0012"));
    EXPECT_FALSE(handler.SendEvent(0, EventType::Read, nullptr));
    logger.setLogLevel(log4cplus::NOT_SET_LOG_LEVEL);
    ExpectRecord("host", "");
}

/// A CO of elements as the stack describes them.
class Elements : public KnxStack::IGroupObject {
public:
    Elements(std::int16_t width, std::int16_t count) : m_width(width), m_count(count) {}
    bool Exists(int) const override { return true; }
    bool IsCommunicationEnabled() const override { return true; }
    std::uint8_t GetSizeCode() const override { return 3; } // not what counts here
    unsigned GetLengthInBytes() const override { return 3; }
    std::int16_t GetElementWidth() const override { return m_width; }
    std::int16_t GetElementCount() const override { return m_count; }

private:
    std::int16_t m_width;
    std::int16_t m_count;
};

class ElementService : public TestSupport::FakeGroupValueService {
public:
    using FakeGroupValueService::FakeGroupValueService;
    const KnxStack::IGroupObject& GetGroupObject(std::uint16_t) override { return object; }
    Elements object{0, 0};
};

struct ElementsCase {
    const char* name;
    std::int16_t width;
    std::int16_t count;
    unsigned coSize;
};

class CoSize : public TranslationHandlerTest, public testing::WithParamInterface<ElementsCase> {};

TEST_P(CoSize, IsTheProductOfWidthAndCountInSixteenBits) {
    const auto& row = GetParam();
    ElementService elements(recorder);
    elements.object = Elements(row.width, row.count);
    handler.Init(client.get(), &elements);
    const unsigned other = row.coSize == 8 ? 16 : 8;
    EXPECT_FALSE(handler.OnMessageReceived(WriteMessage(other, other / 4)));
    EXPECT_THAT(recorder.Lines(), testing::ElementsAre(fmt::format(
                                      "ERROR GroupAddressTranslation | Received message for CO 18 has "
                                      "size of {} bit but CO has size of {} bit.",
                                      other, row.coSize)));
    if (row.coSize == 0 || row.coSize > 255)
        return;
    recorder.Clear();
    EXPECT_TRUE(handler.OnMessageReceived(WriteMessage(row.coSize, std::size_t{(row.coSize + 7) / 8} * 2)));
}

INSTANTIATE_TEST_SUITE_P(
    TranslationHandlerTest, CoSize,
    testing::Values(
        ElementsCase{"OneElement", 16, 1, 16}, ElementsCase{"SeveralElements", 8, 14, 112},
        ElementsCase{"NoElement", 16, 0, 0}, ElementsCase{"ElementsWithoutWidth", 0, 5, 0},
        ElementsCase{"MoreThanAMessageHolds", 256, 1, 256},
        ElementsCase{"TheLargestUnsigned", 3, 21845, 65535}, ElementsCase{"CutToSixteenBits", 256, 257, 256},
        ElementsCase{"CutToNothing", 256, 256, 0}, ElementsCase{"LargestProduct", 32767, 32767, 1},
        ElementsCase{"NegativeWidth", -8, 1, 65528}, ElementsCase{"NegativeCount", 1, -1, 65535},
        ElementsCase{"BothNegative", -2, -4, 8}, ElementsCase{"SmallestProduct", -32768, 1, 32768},
        ElementsCase{"BothSmallest", -32768, -32768, 0}),
    [](const auto& row) { return row.param.name; });

} // namespace
