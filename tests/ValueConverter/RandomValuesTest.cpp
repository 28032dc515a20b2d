// Random octets and texts through every listed type: what is taken comes back the same, nothing else happens.
#include "Convert.h"

#include "KnxStack/GroupValue.h"
#include "Tav/TAVVALUE.h"
#include "ValueConverter/DatapointTypes.h"

#include <gtest/gtest.h>

#include <random>

using namespace ConverterTest;

// A text that came from the bus is taken back, unless it is a value that the type does not have; then its
// octets give the same text again.
TEST(RandomValues, TextIsStableForEveryType) {
    std::mt19937 random(1);
    for (const auto& type : Datapoint::AllTypes()) {
        const std::string name = Datapoint::ToString(type.GetNumber());
        const KNXDPT dpt = Datapoint::ToKnxDpt(type.GetNumber());
        for (int i = 0; i < 200; ++i) {
            Bytes octets((Datapoint::SizeInBits(type) + 7) / 8);
            for (auto& octet : octets) {
                octet = static_cast<std::uint8_t>(random());
            }
            const std::string text = FromBus(dpt, octets);
            if (text == kRefused) {
                continue;
            }
            const std::string back = ToBus(dpt, text);
            if (back != kRefused) {
                Bytes octetsBack;
                for (std::size_t at = 0; at < back.size(); at += 2) {
                    octetsBack.push_back(
                        static_cast<std::uint8_t>(std::stoul(back.substr(at, 2), nullptr, 16)));
                }
                ASSERT_EQ(FromBus(dpt, octetsBack), text) << name;
            }
        }
    }
}

// What Decode() gives may be kept and given back, whatever the device meant by it.
TEST(RandomValues, EveryTextFromTheBusIsTakenAsReceived) {
    std::mt19937 random(6);
    for (const auto& type : Datapoint::AllTypes()) {
        const KNXDPT dpt = Datapoint::ToKnxDpt(type.GetNumber());
        const unsigned bits = Datapoint::SizeInBits(type);
        const unsigned samples = bits > 8 ? 2000 : 1U << bits; // all of them where they are few
        for (unsigned sample = 0; sample < samples; ++sample) {
            Bytes octets((bits + 7) / 8);
            for (auto& octet : octets) {
                octet = static_cast<std::uint8_t>(bits > 8 ? random() : sample);
            }
            const std::string text = FromBus(dpt, octets);
            if (text == kRefused || text.empty()) {
                continue;
            }
            TAVVALUE value;
            value.Deserialize(text);
            KnxStack::GroupValue received;
            const auto outcome = Datapoint::EncodeReceived(dpt, value, received);
            ASSERT_TRUE(outcome) << outcome.reason;
            const auto back = received.GetRawData().Bytes();
            ASSERT_EQ(FromBus(dpt, Bytes(back.begin(), back.end())), text) << type.name;
        }
    }
}

TEST(RandomValues, RawNumbersOf32BitsSurvive) {
    std::mt19937 random(2);
    for (const auto* name : {"12.001", "12.1201", "13.001", "13.002", "13.010", "13.1201"}) {
        for (int i = 0; i < 50000; ++i) {
            Bytes octets(4);
            for (auto& octet : octets) {
                octet = static_cast<std::uint8_t>(random());
            }
            ASSERT_EQ(ToBus(name, FromBus(name, octets)), Hex(octets)) << name;
        }
    }
}

TEST(RandomValues, AccessDataSurvives) {
    std::mt19937 random(3);
    for (int i = 0; i < 20000; ++i) {
        Bytes octets(4);
        for (std::size_t at = 0; at < 3; ++at) {
            octets[at] = static_cast<std::uint8_t>(random() % 10 << 4 | random() % 10);
        }
        octets[3] = static_cast<std::uint8_t>(random());
        ASSERT_EQ(ToBus("15.000", FromBus("15.000", octets)), Hex(octets));
    }
}

TEST(RandomValues, CharactersSurvive) {
    std::mt19937 random(4);
    for (int i = 0; i < 20000; ++i) {
        Bytes octets(14);
        for (std::size_t at = 0; at < random() % 15; ++at) {
            octets[at] = static_cast<std::uint8_t>(random() % 255 + 1);
        }
        ASSERT_EQ(ToBus("16.001", FromBus("16.001", octets)), Hex(octets));
    }
}

// Whatever people type: a text is taken or refused as a whole, and ToBus() checks that a refusal leaves no
// trace.
TEST(RandomValues, ArbitraryTextDoesNoHarm) {
    constexpr std::string_view kLetters = "0123456789.-+eE:;T{}\"[]cv= truefalsonWdx\xC3\xBC\x80\xFF\n";
    std::mt19937 random(5);
    unsigned taken = 0;
    for (const auto& type : Datapoint::AllTypes()) {
        const KNXDPT dpt = Datapoint::ToKnxDpt(type.GetNumber());
        for (int i = 0; i < 100; ++i) {
            std::string text;
            for (auto length = random() % 24; length > 0; --length) {
                text += kLetters[random() % kLetters.size()];
            }
            taken += ToBus(dpt, text) == kRefused ? 0 : 1;
        }
    }
    EXPECT_GT(taken, 0U);
}

TEST(RandomValues, NullNeverReachesTheBus) {
    for (const auto& type : Datapoint::AllTypes()) {
        EXPECT_EQ(ToBus(Datapoint::ToKnxDpt(type.GetNumber()), ""), kRefused) << type.name;
    }
    EXPECT_EQ(ToBus("8 bits", ""), kRefused);
}

TEST(RandomValues, EveryTypeRefusesEveryOtherSize) {
    for (const auto& type : Datapoint::AllTypes()) {
        const unsigned size = Datapoint::SizeInBits(type);
        for (const unsigned bits :
             {1U, 2U, 3U, 4U, 7U, 8U, 16U, 24U, 32U, 48U, 64U, 104U, 112U, 120U, 256U}) {
            const std::string text =
                FromBus(Datapoint::ToKnxDpt(type.GetNumber()), Bytes((bits + 7) / 8, 0x01), bits);
            ASSERT_EQ(text != kRefused, bits == size) << type.name << ' ' << bits;
        }
    }
}
