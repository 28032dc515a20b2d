#include "KnxDevice/Device.h"

#include <gmock/gmock.h>

namespace KnxDevice {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = std::vector<std::uint8_t>;
using enum StandardObject;

class TheDevice : public testing::Test {
protected:
    TheDevice() {
        m_device.SetListener([this](DeviceChange change) { m_changes.push_back(change); });
    }
    void Allocate(StandardObject object, std::uint32_t size) {
        const auto octet = [size](unsigned shift) { return static_cast<std::uint8_t>(size >> shift); };
        m_device.ControlLoading(object, Bytes{4});
        m_device.ControlLoading(object, Bytes{1});
        m_device.ControlLoading(object, Bytes{3, 0x0B, octet(24), octet(16), octet(8), octet(0), 1, 0, 0, 0});
    }
    std::uint32_t AddressOf(StandardObject object) { return m_device.Loadable(object).Memory().address; }

    InterfaceObjects m_objects;
    KnxDevice::Device m_device{{.factoryAddress = IndividualAddress(1, 1, 250)}, m_objects};
    std::vector<DeviceChange> m_changes;
};

TEST_F(TheDevice, HasItsStandardObjectsFirst) {
    ASSERT_EQ(kStandardObjects, m_objects.Count());
    for (std::size_t index = 0; index < kStandardObjects; ++index)
        EXPECT_EQ((InterfaceObjects::Identity{kStandardObjectTypes[index], 1}), m_objects.IdentityAt(index));
}

TEST_F(TheDevice, SegmentsDoNotOverlapAndFillGaps) {
    Allocate(AddressTable, 100);
    Allocate(AssociationTable, 50);
    Allocate(GroupObjectTable, 10);
    EXPECT_EQ(0x200u, AddressOf(AddressTable));
    EXPECT_EQ(0x200u + 100, AddressOf(AssociationTable));
    EXPECT_EQ(0x200u + 150, AddressOf(GroupObjectTable));
    m_device.ControlLoading(AssociationTable, Bytes{4});
    Allocate(Program1, 51);
    EXPECT_EQ(0x200u + 160, AddressOf(Program1)) << "too big for the gap";
    Allocate(Program2, 50);
    EXPECT_EQ(0x200u + 100, AddressOf(Program2)) << "it fits into the gap";
}

TEST_F(TheDevice, HasRoomForTheLargestTablesAndAProgramOfAMebibyte) {
    Allocate(AddressTable, 2 + 65535 * 2);
    Allocate(AssociationTable, 2 + 65535 * 4);
    Allocate(GroupObjectTable, 2 + 65534 * 2);
    Allocate(Program1, KnxDevice::Device::kLargestSegment);
    Allocate(Program2, KnxDevice::Device::kLargestSegment);
    for (const auto object : {AddressTable, AssociationTable, GroupObjectTable, Program1, Program2})
        EXPECT_EQ(LoadState::Loading, m_device.Loadable(object).State()) << ToString(object);
    Allocate(Program1, KnxDevice::Device::kLargestSegment + 1);
    EXPECT_EQ(LoadFault::NoMemory, m_device.Loadable(Program1).Fault());
}

TEST_F(TheDevice, MemoryIsReadWithinOneSegmentAlone) {
    Allocate(AddressTable, 4);
    Allocate(AssociationTable, 4);
    ASSERT_EQ(WriteResult::Done, m_device.WriteMemory(0x202, Bytes{1, 2}));
    EXPECT_EQ((Bytes{0, 0, 1, 2}), m_device.ReadMemory(0x200, 4));
    EXPECT_FALSE(m_device.ReadMemory(0x200, 5).has_value()) << "the next segment is another's";
    EXPECT_EQ(WriteResult::MemoryEnds, m_device.WriteMemory(0x203, Bytes{1, 2}));
    EXPECT_FALSE(m_device.ReadMemory(0x1FF, 1).has_value());
    EXPECT_FALSE(m_device.ReadMemory(0x208, 1).has_value());
}

TEST_F(TheDevice, GroupObjectsNeedAllThreeTables) {
    EXPECT_TRUE(m_device.LoadWith(AddressTable, Bytes{0, 1, 0x0A, 0x03}));
    EXPECT_TRUE(m_device.LoadWith(AssociationTable, Bytes{0, 1, 0, 1, 0, 1}));
    EXPECT_THAT(m_device.LoadedGroupObjects(), IsEmpty());
    EXPECT_TRUE(m_device.LoadWith(GroupObjectTable, Bytes{0, 1, 0x17, 8}));
    EXPECT_EQ(1u, m_device.LoadedGroupObjects().size());
    m_device.ControlLoading(AddressTable, Bytes{1});
    EXPECT_THAT(m_device.LoadedGroupObjects(), IsEmpty()) << "while one is loading";
}

TEST_F(TheDevice, TellsEachChangeOnce) {
    m_device.SetProgrammingMode(true);
    m_device.SetProgrammingMode(true);
    m_device.SetAddress(IndividualAddress(1, 1, 9));
    m_device.SetAddress(IndividualAddress(1, 1, 9));
    m_device.SetRestartPending(true);
    m_device.SetRestartPending(true);
    m_device.ControlLoading(AddressTable, Bytes{1});
    m_device.ControlLoading(AddressTable, Bytes{1});
    EXPECT_THAT(m_changes, ElementsAre(DeviceChange::ProgrammingMode, DeviceChange::Address,
                                       DeviceChange::Stored, DeviceChange::LoadState));
}

TEST_F(TheDevice, UnloadingWhatIsUnloadedTellsThatItsVersionIsGone) {
    m_device.SetProgramVersion(Program1, {0, 0xFA, 0, 1, 1});
    m_changes.clear();
    m_device.ControlLoading(Program1, Bytes{4});
    EXPECT_THAT(m_device.ProgramVersion(Program1), ElementsAre(0, 0, 0, 0, 0));
    EXPECT_THAT(m_changes, ElementsAre(DeviceChange::Stored));
    m_device.ControlLoading(Program1, Bytes{4});
    EXPECT_THAT(m_changes, testing::SizeIs(1));
}

TEST_F(TheDevice, AKeyOpensItsLevelAndALevelWithoutOneIsOpen) {
    EXPECT_EQ(0, m_device.FreeLevel());
    EXPECT_TRUE(m_device.SetKey(0, 0x11111111));
    EXPECT_EQ(1, m_device.FreeLevel());
    EXPECT_TRUE(m_device.SetKey(1, 0x22222222));
    EXPECT_TRUE(m_device.SetKey(2, 0x33333333));
    EXPECT_EQ(kAnybody, m_device.FreeLevel());
    EXPECT_EQ(0, m_device.LevelOf(0x11111111));
    EXPECT_EQ(1, m_device.LevelOf(0x22222222));
    EXPECT_EQ(2, m_device.LevelOf(0x33333333));
    EXPECT_EQ(kAnybody, m_device.LevelOf(0x44444444));
    EXPECT_FALSE(m_device.SetKey(kAnybody, 1));
    EXPECT_TRUE(m_device.SetKey(1, kNoKey));
    EXPECT_EQ(1, m_device.FreeLevel());
}

} // namespace
} // namespace KnxDevice
