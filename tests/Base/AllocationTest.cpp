// The way of a telegram's value, from bytes to text and back, takes nothing from the heap. A program of its
// own, because it counts every allocation of the process.
#include "../support/AllocationCounter.h"

#include "KnxStack/GroupValue.h"
#include "Tav/TAVVALUE.h"

#include <gtest/gtest.h>

#include <string>

namespace {

template <typename Work>
std::size_t AllocationsOf(Work work) {
    const auto before = CountAllocations();
    work();
    return CountAllocations() - before;
}

TEST(AllocationTest, IsCounted) {
    std::string text;
    EXPECT_GT(AllocationsOf([&] { text.assign(100, 'x'); }), 0U);
    TAVVALUE value;
    EXPECT_GT(AllocationsOf([&] { value.Deserialize(text); }), 0U);
}

TEST(AllocationTest, ReadingAndWritingAShortTextTakesNone) {
    for (const std::string_view text :
         {"", "0", "1", "-1234", "21.53", "1e-07", "12:00:00", "Wed 12:00:00", "2024-05-01",
          R"({"c":1,"v":0})", "Kitchen", R"("")", R"("\u0041")", R"("broken)"}) {
        EXPECT_EQ(AllocationsOf([&] {
                      TAVVALUE value;
                      value.Deserialize(text);
                      std::string written;
                      value.Serialize(written, true);
                  }),
                  0U)
            << text;
    }
}

TEST(AllocationTest, ALongTextIsAllocatedOnceToReadAndOnceToWrite) {
    for (const std::string_view text :
         {"2024-05-01T12:00:00;f=1;wd=1", R"({"c":1,"stepcode":3})", "a text of its own"}) {
        TAVVALUE value;
        EXPECT_EQ(AllocationsOf([&] { value.Deserialize(text); }), 1U) << text;
        EXPECT_EQ(AllocationsOf([&] { value.Deserialize(text); }), 0U) << text;
        std::string written;
        EXPECT_EQ(AllocationsOf([&] { value.Serialize(written, true); }), 1U) << text;
        EXPECT_EQ(AllocationsOf([&] { value.Serialize(written, true); }), 0U) << text;
    }
}

TEST(AllocationTest, SettingAndWritingANumberTakesNone) {
    std::string written;
    EXPECT_EQ(AllocationsOf([&] {
                  TAVVALUE value;
                  value.SetBoolean(true);
                  value.Serialize(written, true);
                  value.SetInteger(-12345678901234);
                  value.Serialize(written, true);
                  value.SetUnsigned(4294967295);
                  value.Serialize(written, true);
                  value.SetFloat(21.53F);
                  value.Serialize(written, true);
                  value.SetDecimal("670433.28");
                  value.Serialize(written, true);
                  value = TAVTIME();
              }),
              0U);
}

TEST(AllocationTest, ValuesOfUpToSixteenBytesTakeNone) {
    EXPECT_EQ(AllocationsOf([] {
                  KnxStack::BinaryData data;
                  for (int i = 0; i < 16; ++i) {
                      data.Append(static_cast<std::uint8_t>(i));
                  }
                  const KnxStack::GroupValue value(data, 128);
                  const auto copy = value;
                  EXPECT_EQ(copy.GetRawData().GetSize(), 16U);
              }),
              0U);
}

} // namespace
