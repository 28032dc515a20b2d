// How the device's time is kept: from property 201, or from the memory that ETS loaded.
#include "KnxHandlerTest.h"

#include "ParameterNames.h"

#include <boost/thread/thread.hpp>

namespace {

using KnxStack::BinaryData;

/// Reads the time mode. The own object, 50001, is there; whether it has the property is up to the test.
class TimeModeTest : public KnxHandlerTest {
protected:
    TimeModeTest() { plugins["A"].interfaceObjectId = 50001; }

    /// A device whose time mode property holds the bytes.
    void SetUpWithProperty(const BinaryData& value) {
        property.value = value;
        SetUpWith({"A"});
    }

    /// A device of type 2 without the property.
    void SetUpWithMemory(const BinaryData& data) {
        object.properties.clear();
        memory.data = data;
        hub.applicationProgramMemory = &memory;
        stack.configuration = Configuration("PLXWNV01");
        SetUpWith({"A"});
    }

    /// So many bytes of memory, of which byte 48 is `mode`.
    static BinaryData Memory(std::size_t size, std::uint8_t mode) {
        std::vector<std::uint8_t> bytes(size, 0x55); // a mode of 1, where it is looked for in the wrong place
        bytes.at(48) = mode;
        return BinaryData(bytes);
    }

    TestSupport::FakeInterfaceObject& object = propertyService.Add(50001);
    TestSupport::FakeProperty& property = object.Add(201);
    TestSupport::FakeApplicationProgramMemory memory;
};

TEST_F(TimeModeTest, BeforeItWasRead_IsZero) {
    EXPECT_EQ(handler.TimeMode(), 0);
    SetUpWithProperty({0x40});
    EXPECT_EQ(handler.TimeMode(), 0);
}

TEST_F(TimeModeTest, OfTheProperty_IsInTheTwoHighestBitsOfItsFirstByte) {
    SetUpWithProperty({0xBF, 0x40});
    handler.InitKnxPropertiesFromKnxStack();
    EXPECT_EQ(handler.TimeMode(), 2);
    ExpectRecord("host", R"(
        object 50001/1 GetProperty(201)
        property 50001/1/201 GetValue() -> bf40
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time mode property is: bf40
        INFO KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time mode is: 2
    )");
}

struct ModeRow {
    std::uint8_t byte;
    unsigned mode;
};

class EveryTimeMode : public TimeModeTest, public testing::WithParamInterface<ModeRow> {};

TEST_P(EveryTimeMode, IsReadFromEitherPlace) {
    SetUpWithProperty({GetParam().byte});
    handler.InitKnxPropertiesFromKnxStack();
    EXPECT_EQ(handler.TimeMode(), GetParam().mode);
    const std::string line = "INFO KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time "
                             "mode is: " +
                             std::to_string(GetParam().mode);
    EXPECT_EQ(recorder.Count(line), 1u);
}
INSTANTIATE_TEST_SUITE_P(TimeModeTest, EveryTimeMode,
                         testing::Values(ModeRow{0x00, 0}, ModeRow{0x3F, 0}, ModeRow{0x40, 1},
                                         ModeRow{0x7F, 1}, ModeRow{0x80, 2}, ModeRow{0xFF, 3}),
                         TestSupport::NamesInOrder({"x00", "x3F", "x40", "x7F", "x80", "xFF"}));

TEST_F(TimeModeTest, OfAPropertyThatNobodyWrote_StaysAsItWas) {
    SetUpWithProperty({0x80});
    handler.InitKnxPropertiesFromKnxStack();
    property.value = {};
    recorder.Clear();
    handler.InitKnxPropertiesFromKnxStack();
    EXPECT_EQ(handler.TimeMode(), 2);
    const auto lines = recorder.LinesOf("host");
    ExpectTranscript({lines.begin() + 2, lines.end()}, R"(
        DEBUG KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time mode property is: )"
                                                       R"(
        INFO KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time mode is: 2
    )");
}

TEST_F(TimeModeTest, OfADeviceWithTheProperty_IsNotReadFromMemory) {
    SetUpWithMemory(Memory(97, 0xC0));
    object.Add(201).value = {0x80};
    handler.InitKnxPropertiesFromKnxStack();
    EXPECT_EQ(handler.TimeMode(), 2);
}

TEST_F(TimeModeTest, WithoutOwnObject_IsNotKnown) {
    plugins["A"].interfaceObjectId = 0;
    SetUpWith({"A"});
    handler.InitKnxPropertiesFromKnxStack();
    ExpectRecord("host", R"(
        ERROR KnxStack.DscKnxAppPrg.KnxPropertyHandler | Error creating calculator configuration interface object
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | Error register Property with id = 201
        INFO KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time mode property is NULL.
    )");
}

/// The memory counts for device type 2 alone.
class OtherDeviceType : public TimeModeTest, public testing::WithParamInterface<const char*> {};

TEST_P(OtherDeviceType, WithoutTheProperty_KeepsTheMode) {
    SetUpWithMemory(Memory(97, 0xC0));
    stack.configuration = Configuration(GetParam());
    SetUpWith({"A"});
    handler.InitKnxPropertiesFromKnxStack();
    EXPECT_EQ(handler.TimeMode(), 0);
    ExpectRecord("host", R"(
        object 50001/1 GetProperty(201) -> null
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | Error register Property with id = 201
        INFO KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time mode property is NULL.
    )");
}
INSTANTIATE_TEST_SUITE_P(TimeModeTest, OtherDeviceType,
                         testing::Values("QTRMNV01", "HBRQNV02", "ZAXPNVIP", "VELDNV03", "MURTNV03", "other"),
                         [](const auto& row) { return std::string(row.param); });

TEST_F(TimeModeTest, OfDeviceType2_IsInTheTwoHighestBitsOfByte48OfItsMemory) {
    SetUpWithMemory(Memory(97, 0xBF));
    handler.InitKnxPropertiesFromKnxStack();
    EXPECT_EQ(handler.TimeMode(), 2);
    ExpectRecord("host", R"(
        object 50001/1 GetProperty(201) -> null
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | Error register Property with id = 201
        INFO KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): Time mode is: 2
    )");
}

TEST_F(TimeModeTest, OfTooLittleMemory_StaysAsItWas) {
    SetUpWithMemory(Memory(97, 0xBF));
    handler.InitKnxPropertiesFromKnxStack();
    memory.data = Memory(96, 0xC0);
    recorder.Clear();
    handler.InitKnxPropertiesFromKnxStack();
    EXPECT_EQ(handler.TimeMode(), 2);
    ExpectRecord("host", R"(
        object 50001/1 GetProperty(201) -> null
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | Error register Property with id = 201
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): AppPrg1 Memory hasn't enough data.
    )");
}

TEST_F(TimeModeTest, OfDeviceType2WithoutMemory_StaysAsItWas) {
    object.properties.clear();
    stack.configuration = Configuration("PLXWNV01");
    SetUpWith({"A"});
    handler.InitKnxPropertiesFromKnxStack();
    EXPECT_EQ(handler.TimeMode(), 0);
    ExpectRecord("host", R"(
        object 50001/1 GetProperty(201) -> null
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | Error register Property with id = 201
        ERROR KnxStack.DscKnxAppPrg.KnxHandler | InitKnxPropertiesFromKnxStack(): AppPrg1 Memory is NULL.
    )");
}

/// Memory that takes long to give.
class SlowMemory : public TestSupport::FakeApplicationProgramMemory {
public:
    const BinaryData& GetData() const override {
        gate.Pass();
        boost::this_thread::interruption_point();
        answered = true;
        return data;
    }

    mutable TestSupport::Gate gate;
    mutable std::atomic<bool> answered = false;
};

TEST_F(TimeModeTest, OfMemoryThatComesAfterTheStartWasStopped_IsNotTaken) {
    SetUpWithMemory({});
    SlowMemory slow;
    slow.data = Memory(97, 0xC0);
    hub.applicationProgramMemory = &slow;
    SetUpWith({"A"});
    bool interrupted = false;
    boost::thread start([&] {
        try {
            handler.InitKnxPropertiesFromKnxStack();
        } catch (const boost::thread_interrupted&) {
            interrupted = true;
        }
    });
    EXPECT_TRUE(slow.gate.WaitForArrival());
    start.interrupt();
    slow.gate.Open();
    start.join();
    EXPECT_TRUE(slow.answered); // the question ran to its own end
    EXPECT_TRUE(interrupted);
    EXPECT_EQ(handler.TimeMode(), 0);
}

} // namespace
