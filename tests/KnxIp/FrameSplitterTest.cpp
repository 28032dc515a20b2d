// Streams cut into frames, wherever the network has cut them.
#include "KnxIp/FrameSplitter.h"

#include "Transcript.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace KnxIp {
namespace {

using KnxFrames::Octets;
using Kind = FrameSplitter::Piece::Kind;
using Bytes = std::vector<std::uint8_t>;

/// What a splitter finds in `octets`: each frame in hexadecimal, "too long" or the cause of a bad header.
std::vector<std::string> TakeAll(FrameSplitter& splitter, Octets octets) {
    std::vector<std::string> found;
    for (;;) {
        const auto piece = splitter.Take(octets);
        switch (piece.kind) {
        case Kind::Nothing: EXPECT_TRUE(octets.empty()) << "something was left"; return found;
        case Kind::Whole: {
            std::string text;
            for (const auto octet : piece.frame)
                text += fmt::format("{:02x}", octet);
            found.push_back(text);
            break;
        }
        case Kind::TooLong: found.push_back("too long"); break;
        case Kind::BadHeader: found.push_back(piece.error.cause); return found;
        }
    }
}

std::vector<std::string> TakeAll(const std::string& hex) {
    FrameSplitter splitter;
    return TakeAll(splitter, Testing::Hex(hex));
}

void Append(std::vector<std::string>& all, const std::vector<std::string>& more) {
    all.insert(all.end(), more.begin(), more.end());
}

/// Three frames: one of a header alone, one of 10 and one of 21 octets.
const std::string kFirst = "061002030006";
const std::string kSecond = "06100421000a04010000";
const std::string kThird = "06100420001504010000112233445566778899aabb";
const std::vector<std::string> kThree = {kFirst, kSecond, kThird};

TEST(FrameSplitter, FindsTheFramesWhereverTheStreamIsCutInTwo) {
    const Bytes stream = Testing::Hex(kFirst + kSecond + kThird);
    for (std::size_t cut = 0; cut <= stream.size(); ++cut) {
        FrameSplitter splitter;
        auto found = TakeAll(splitter, Octets(stream).first(cut));
        Append(found, TakeAll(splitter, Octets(stream).subspan(cut)));
        EXPECT_EQ(found, kThree) << "cut at " << cut;
    }
}

TEST(FrameSplitter, FindsTheFramesWhereverTheStreamIsCutInThree) {
    const Bytes stream = Testing::Hex(kFirst + kSecond + kThird);
    for (std::size_t first = 0; first <= stream.size(); ++first) {
        for (std::size_t second = first; second <= stream.size(); ++second) {
            FrameSplitter splitter;
            auto found = TakeAll(splitter, Octets(stream).first(first));
            Append(found, TakeAll(splitter, Octets(stream).subspan(first, second - first)));
            Append(found, TakeAll(splitter, Octets(stream).subspan(second)));
            ASSERT_EQ(found, kThree) << "cut at " << first << " and " << second;
        }
    }
}

TEST(FrameSplitter, FindsTheFramesOctetByOctet) {
    const Bytes stream = Testing::Hex(kFirst + kSecond + kThird + kFirst);
    FrameSplitter splitter;
    std::vector<std::string> found;
    for (std::size_t index = 0; index < stream.size(); ++index)
        Append(found, TakeAll(splitter, Octets(stream).subspan(index, 1)));
    EXPECT_EQ(found, (std::vector<std::string>{kFirst, kSecond, kThird, kFirst}));
}

TEST(FrameSplitter, AFrameOutlivesTheOctetsThatItBeganIn) {
    FrameSplitter splitter;
    {
        const Bytes begin = Testing::Hex("06100421000a0401");
        EXPECT_TRUE(TakeAll(splitter, begin).empty());
    }
    EXPECT_EQ(TakeAll(splitter, Testing::Hex("0000")), std::vector<std::string>{kSecond});
}

TEST(FrameSplitter, AHeaderThatIsNoneEndsTheStream) {
    const std::string bad = kFirst + "051004210006" + kFirst;
    EXPECT_EQ(TakeAll(bad), (std::vector<std::string>{kFirst, "the KNXnet/IP header is not 6 octets long"}));
    EXPECT_EQ(TakeAll("062002030006"), std::vector<std::string>{"the KNXnet/IP version is not 1.0"});
    EXPECT_EQ(TakeAll("061002030005"),
              std::vector<std::string>{"the total length is shorter than the header"});
    EXPECT_EQ(TakeAll("474554202f20"), // "GET / "
              std::vector<std::string>{"the KNXnet/IP header is not 6 octets long"});
}

TEST(FrameSplitter, NothingIsFoundBehindABadHeader) {
    FrameSplitter splitter;
    const std::vector<std::string> refused{"the KNXnet/IP header is not 6 octets long"};
    EXPECT_EQ(TakeAll(splitter, Testing::Hex("0510")), std::vector<std::string>{}) << "no header yet";
    EXPECT_EQ(TakeAll(splitter, Testing::Hex("04210006")), refused);
    EXPECT_EQ(TakeAll(splitter, Testing::Hex(kFirst)), refused);
}

TEST(FrameSplitter, AFrameOfTheGreatestLengthIsTakenAndALongerOnePassedOver) {
    for (const std::size_t cut : {1, 5, 6, 7, 500, 1023, 1024, 1025}) {
        Bytes stream = Testing::Hex("061004200400");
        stream.resize(1024, 0xAB);
        for (const auto octet : Testing::Hex("061004200401"))
            stream.push_back(octet);
        stream.resize(1024 + 1025, 0x06);
        for (const auto octet : Testing::Hex(kFirst))
            stream.push_back(octet);
        FrameSplitter splitter;
        auto found = TakeAll(splitter, Octets(stream).first(cut));
        Append(found, TakeAll(splitter, Octets(stream).subspan(cut, 1024)));
        Append(found, TakeAll(splitter, Octets(stream).subspan(cut + 1024)));
        ASSERT_EQ(found.size(), 3U) << "cut at " << cut;
        EXPECT_EQ(found[0].size(), 2 * 1024U);
        EXPECT_EQ(found[1], "too long");
        EXPECT_EQ(found[2], kFirst);
    }
}

} // namespace
} // namespace KnxIp
