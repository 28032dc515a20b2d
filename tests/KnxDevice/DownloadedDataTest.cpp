#include "KnxDevice/DownloadedData.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>

namespace KnxDevice {
namespace {

using KnxStack::BinaryData;

TEST(DownloadedData, IsEmptyBeforeTheFirstDownload) {
    DownloadedData data;
    EXPECT_EQ(0u, data.GetData().GetSize());
    EXPECT_EQ(0u, data.GetApplicationData().GetSize());
}

TEST(DownloadedData, GivesEachBlock) {
    DownloadedData data({1, 2}, {3});
    EXPECT_EQ("0102", data.GetData().ToString());
    EXPECT_EQ("03", data.GetApplicationData().ToString());
    EXPECT_EQ(&data.GetData(), &data.GetData());
}

TEST(DownloadedData, WhatWasHandedOutStaysAsItIsOverReplacements) {
    DownloadedData data({1}, {2});
    const auto& memory = data.GetData();
    const auto& applicationData = data.GetApplicationData();
    data.Replace({3}, {4});
    EXPECT_EQ("03", data.GetData().ToString());
    EXPECT_EQ("04", data.GetApplicationData().ToString());
    data.Replace({5}, {6});
    EXPECT_EQ("01", memory.ToString());
    EXPECT_EQ("02", applicationData.ToString());
    EXPECT_EQ(6u, data.Held());
}

TEST(DownloadedData, WhatNobodyAskedForIsNotKept) {
    DownloadedData data({1}, {2});
    data.GetApplicationData();
    data.Replace({3}, {4});
    data.Replace({5}, {6});
    EXPECT_EQ(3u, data.Held());
    EXPECT_EQ("05", data.GetData().ToString());
}

TEST(DownloadedData, AnEqualBlockReplacesNothing) {
    DownloadedData data({1}, {2});
    const auto& memory = data.GetData();
    data.Replace({1}, {2});
    EXPECT_EQ(&memory, &data.GetData());
    EXPECT_EQ(2u, data.Held());
}

TEST(DownloadedData, ReadersSeeWholeBlocksWhileTheyAreReplaced) {
    const auto blockOf = [](std::uint8_t byte) {
        BinaryData block;
        for (int i = 0; i < 64; ++i)
            block.Append(byte);
        return block;
    };
    DownloadedData data(blockOf(0), blockOf(0));
    std::atomic<bool> stop{false};
    std::atomic<unsigned> mixtures{0};
    std::atomic<unsigned> reads{0};
    {
        std::array<std::jthread, 2> readers;
        for (auto& reader : readers)
            reader = std::jthread([&] {
                while (!stop) {
                    for (const auto* block : {&data.GetData(), &data.GetApplicationData()})
                        if (*block != blockOf(block->Bytes().front()))
                            ++mixtures;
                    ++reads;
                }
            });
        for (unsigned i = 1; i < 500 || reads < 100; ++i)
            data.Replace(blockOf(static_cast<std::uint8_t>(i)), blockOf(static_cast<std::uint8_t>(i + 1)));
        stop = true;
    }
    EXPECT_EQ(0u, mixtures);
}

} // namespace
} // namespace KnxDevice
