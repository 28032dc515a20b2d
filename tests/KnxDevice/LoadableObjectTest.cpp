#include "KnxDevice/LoadableObject.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <numeric>
#include <string_view>

namespace KnxDevice {
namespace {

using testing::ElementsAre;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kAddress = 0x4000;
constexpr std::size_t kRoom = 1000;

class Loadable : public testing::Test {
protected:
    void Control(const Bytes& octets) { m_object.Control(octets); }
    void Unload() { Control({4}); }
    void StartLoading() { Control({1}); }
    void Complete() { Control({2}); }
    /// Data relative allocation; `mode` 1 fills with `fill`.
    void Allocate(std::uint32_t size, std::uint8_t mode = 1, std::uint8_t fill = 0xEE) {
        Control({3, 0x0B, static_cast<std::uint8_t>(size >> 24), static_cast<std::uint8_t>(size >> 16),
                 static_cast<std::uint8_t>(size >> 8), static_cast<std::uint8_t>(size), mode, fill, 0, 0});
    }
    void Load(const Bytes& octets) {
        Unload();
        StartLoading();
        Allocate(static_cast<std::uint32_t>(octets.size()));
        EXPECT_TRUE(m_object.Write(kAddress, octets));
        Complete();
    }

    LoadFault m_verdict = LoadFault::None;
    LoadableObject m_object{[](std::size_t size) { return size <= kRoom ? kAddress : 0; },
                            [this](Octets) { return m_verdict; }};
};

TEST_F(Loadable, ADownloadEndsLoadedWithWhatWasWritten) {
    EXPECT_EQ(LoadState::Unloaded, m_object.State());
    StartLoading();
    EXPECT_EQ(LoadState::Loading, m_object.State());
    Allocate(4);
    EXPECT_EQ(kAddress, m_object.Memory().address);
    EXPECT_THAT(m_object.Memory().octets, ElementsAre(0xEE, 0xEE, 0xEE, 0xEE)) << "filled as asked for";
    EXPECT_TRUE(m_object.Write(kAddress + 1, Bytes{1, 2}));
    Complete();
    EXPECT_EQ(LoadState::Loaded, m_object.State());
    EXPECT_THAT(m_object.Memory().octets, ElementsAre(0xEE, 1, 2, 0xEE));
}

TEST_F(Loadable, NothingIsWrittenUnlessItIsLoadingAndInside) {
    EXPECT_FALSE(m_object.Write(kAddress, Bytes{1})) << "unloaded";
    StartLoading();
    EXPECT_FALSE(m_object.Write(kAddress, Bytes{1})) << "no memory";
    Allocate(2);
    EXPECT_FALSE(m_object.Write(kAddress - 1, Bytes{1}));
    EXPECT_FALSE(m_object.Write(kAddress + 1, Bytes{1, 2})) << "the second octet is outside";
    EXPECT_FALSE(m_object.Write(kAddress + 3, Bytes{}));
    EXPECT_TRUE(m_object.Write(kAddress + 1, Bytes{1}));
    Complete();
    EXPECT_FALSE(m_object.Write(kAddress, Bytes{9})) << "loaded";
    EXPECT_THAT(m_object.Memory().octets, ElementsAre(0xEE, 1));
}

TEST_F(Loadable, UnloadingForgetsTheMemoryInEveryState) {
    Load({1, 2});
    Unload();
    EXPECT_EQ(LoadState::Unloaded, m_object.State());
    EXPECT_TRUE(m_object.Memory().IsEmpty());
    EXPECT_EQ(0u, m_object.Memory().address);
    StartLoading();
    Unload();
    EXPECT_EQ(LoadState::Unloaded, m_object.State());
    Complete(); // an error
    Unload();
    EXPECT_EQ(LoadState::Unloaded, m_object.State());
    EXPECT_EQ(LoadFault::None, m_object.Fault());
}

TEST_F(Loadable, LoadingAgainKeepsWhatIsThereUnlessItIsFilled) {
    Load({1, 2, 3});
    StartLoading();
    Allocate(5, 0);
    EXPECT_THAT(m_object.Memory().octets, ElementsAre(1, 2, 3, 0, 0));
    Allocate(2, 1, 7);
    EXPECT_THAT(m_object.Memory().octets, ElementsAre(7, 7));
}

TEST_F(Loadable, AnEventThatTheStateDoesNotHaveIsAnErrorThatOnlyUnloadingEnds) {
    Complete();
    EXPECT_EQ(LoadState::Error, m_object.State()) << "completed without loading";
    EXPECT_EQ(LoadFault::InvalidOpcode, m_object.Fault());
    for (const std::uint8_t event : {0, 1, 2, 3, 5}) {
        Control({event});
        EXPECT_EQ(LoadState::Error, m_object.State()) << int(event);
    }
    Unload();
    Allocate(1);
    EXPECT_EQ(LoadState::Error, m_object.State()) << "an allocation without loading";
    Load({1});
    Allocate(1);
    EXPECT_EQ(LoadState::Error, m_object.State()) << "an allocation when loaded";
    Unload();
    Control({5});
    EXPECT_EQ(LoadState::Error, m_object.State()) << "no such event";
}

TEST_F(Loadable, NothingHappensWithoutAnEvent) {
    Load({1});
    Control({0});
    Control({});
    EXPECT_EQ(LoadState::Loaded, m_object.State());
    Complete();
    EXPECT_EQ(LoadState::Loaded, m_object.State()) << "it is complete already";
}

TEST_F(Loadable, AnAllocationThatCannotBeSaysWhy) {
    StartLoading();
    Allocate(0);
    EXPECT_EQ(LoadFault::ZeroAllocation, m_object.Fault());
    Unload();
    StartLoading();
    Allocate(kRoom + 1);
    EXPECT_EQ(LoadFault::NoMemory, m_object.Fault());
    Unload();
    StartLoading();
    Allocate(0xFFFFFFFF);
    EXPECT_EQ(LoadFault::NoMemory, m_object.Fault());
    Unload();
    StartLoading();
    Control({3, 0x0B, 0, 0, 0, 1, 1});
    EXPECT_EQ(LoadFault::InvalidOpcode, m_object.Fault()) << "cut off";
    Unload();
    StartLoading();
    Control({3, 0x0A, 0, 0, 0, 1, 1, 0, 0, 0});
    EXPECT_EQ(LoadFault::InvalidOpcode, m_object.Fault()) << "another load control";
}

TEST_F(Loadable, WhatTheCheckRefusesIsNotLoaded) {
    m_verdict = LoadFault::AddressesUnsorted;
    Load({1});
    EXPECT_EQ(LoadState::Error, m_object.State());
    EXPECT_EQ(LoadFault::AddressesUnsorted, m_object.Fault());
    EXPECT_FALSE(m_object.LoadWith(Bytes{1}));
    EXPECT_EQ(LoadState::Unloaded, m_object.State());
}

TEST_F(Loadable, CanBeLoadedWithoutADownload) {
    EXPECT_TRUE(m_object.LoadWith(Bytes{1, 2}));
    EXPECT_TRUE(m_object.IsLoaded());
    EXPECT_EQ((Segment{kAddress, {1, 2}}), m_object.Memory());
    EXPECT_TRUE(m_object.LoadWith({}));
    EXPECT_TRUE(m_object.IsLoaded()) << "with nothing in it";
    EXPECT_TRUE(m_object.Memory().IsEmpty());
    EXPECT_FALSE(m_object.LoadWith(Bytes(kRoom + 1)));
    EXPECT_FALSE(m_object.IsLoaded());
}

TEST_F(Loadable, ItsMemoryControlBlockHasSizeAndChecksum) {
    // The checksum of "123456789" is the check value by which CRC catalogues name CRC-16 with this polynomial
    // and beginning: 29B1h.
    constexpr std::string_view kDigits = "123456789";
    const Bytes digits(kDigits.begin(), kDigits.end());
    EXPECT_EQ(0x29B1, Crc16(digits));
    Load(digits);
    EXPECT_THAT(m_object.MemoryControlBlock(), ElementsAre(0, 0, 0, 9, 0, 0xFF, 0x29, 0xB1));
}

} // namespace
} // namespace KnxDevice
