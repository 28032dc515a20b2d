// Random octets and texts through every listed type: what is taken comes back the same, nothing else happens.
#include "Convert.h"

#include "KnxStack/GroupValue.h"
#include "Tav/TAVVALUE.h"
#include "ValueConverter/DatapointTypes.h"
#include "Vesk/KnxValueConverter.h"

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <random>
#include <set>

using namespace ConverterTest;

namespace {

// Octets for a value of the type, as many as somebody chose where the type does not say.
template <typename Random>
Bytes RandomOctets(const Datapoint::Type& type, Random& random) {
    const unsigned bits = Datapoint::SizeInBits(type);
    Bytes octets(bits == 0 ? 1 + random() % 40 : (bits + 7) / 8);
    for (auto& octet : octets) {
        octet = static_cast<std::uint8_t>(random());
    }
    return octets;
}

// Without the checks of FromBus(), which cost more than a conversion: they are made with fewer values
// elsewhere.
std::optional<std::string> TextOf(KNXDPT dpt, const KnxStack::GroupValue& groupValue) {
    TAVVALUE value;
    if (!Vesk::KnxValueConverter().FromKnxValue(dpt, groupValue, value)) {
        return std::nullopt;
    }
    std::string text;
    value.Serialize(text, true);
    return text;
}

// What is wrong with the way of the octets to their text and back; empty where nothing is.
std::string Fault(KNXDPT dpt, const KnxStack::GroupValue& groupValue) {
    const auto text = TextOf(dpt, groupValue);
    if (!text || text->empty()) {
        return {};
    }
    TAVVALUE value;
    value.Deserialize(*text);
    KnxStack::GroupValue received;
    if (const auto outcome = Datapoint::EncodeReceived(dpt, value, received); !outcome) {
        return outcome.reason;
    }
    if (TextOf(dpt, received) != text) {
        return *text + " comes back as " + TextOf(dpt, received).value_or("nothing");
    }
    KnxStack::GroupValue sent;
    if (Vesk::KnxValueConverter().ToKnxValue(dpt, value, sent) && sent != received) {
        return *text + " goes to the bus as " + sent.GetRawData().ToString();
    }
    return {};
}

} // namespace

// What a device has sent, whatever it meant by it, may be kept and given back; where its text may go to the
// bus, the same octets go there. Types of one layout share most of the way: one of them has many samples, the
// others enough for their limits.
TEST(RandomValues, EveryTextFromTheBusIsTakenAsReceived) {
    std::mt19937 random(6);
    std::set<const Datapoint::Layout*> layouts;
    for (const auto& type : Datapoint::AllTypes()) {
        const KNXDPT dpt = Datapoint::ToKnxDpt(type.GetNumber());
        const unsigned bits = Datapoint::SizeInBits(type);
        const bool few = bits != 0 && bits <= 8; // then all of them
        const unsigned samples = few ? 1U << bits : layouts.insert(type.layout).second ? 2000 : 200;
        for (unsigned sample = 0; sample < samples; ++sample) {
            const Bytes octets = few ? Bytes{static_cast<std::uint8_t>(sample)} : RandomOctets(type, random);
            const unsigned size = bits != 0 ? bits : static_cast<unsigned>(octets.size()) * 8;
            ASSERT_EQ(Fault(dpt, {KnxStack::BinaryData(octets), size}), "")
                << type.name << ' ' << Hex(octets);
        }
    }
}

// The same with the checks of FromBus() and ToBus(): what refuses says why, and leaves no trace.
TEST(RandomValues, EveryTypeIsTakenOrRefusedAsAWhole) {
    std::mt19937 random(1);
    for (const auto& type : Datapoint::AllTypes()) {
        const KNXDPT dpt = Datapoint::ToKnxDpt(type.GetNumber());
        for (int i = 0; i < 10; ++i) {
            const std::string text = FromBus(dpt, RandomOctets(type, random));
            if (text != kRefused) {
                ToBus(dpt, text);
            }
        }
    }
}

TEST(RandomValues, RawNumbersOf32BitsSurvive) {
    std::mt19937 random(2);
    for (const auto* name : {"12.001", "12.1201", "13.001", "13.002", "13.010", "13.1201"}) {
        const KNXDPT dpt = Dpt(name);
        for (int i = 0; i < 50000; ++i) {
            Bytes octets(4);
            for (auto& octet : octets) {
                octet = static_cast<std::uint8_t>(random());
            }
            ASSERT_EQ(ToBus(dpt, FromBus(dpt, octets)), Hex(octets)) << name;
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
        const unsigned shortest = type.main == 267 ? 72 : 8; // of those without a size
        for (const unsigned bits :
             {1U, 2U, 3U, 4U, 7U, 8U, 16U, 24U, 32U, 48U, 64U, 104U, 112U, 120U, 256U, 688U}) {
            const std::string text =
                FromBus(Datapoint::ToKnxDpt(type.GetNumber()), Bytes((bits + 7) / 8, 0x01), bits);
            const bool fits = size == 0 ? bits >= shortest : bits == size;
            ASSERT_EQ(text != kRefused, fits) << type.name << ' ' << bits;
        }
    }
}

namespace {

constexpr std::uint8_t kAll = 0xFF;

// The bits of the composites of more than 16 bits that are not reserved, where not all of them.
const std::map<unsigned, Bytes> s_bits{
    {235, {kAll, kAll, kAll, kAll, kAll, 0x03}},
    {240, {kAll, kAll, 0x03}},
    {242, {kAll, kAll, kAll, kAll, kAll, 0x03}},
    {243, {kAll, kAll, kAll, kAll, kAll, kAll, kAll, 0x03}},
    {245, {kAll, 0xF0, 0xFC, kAll, kAll, kAll}},
    {249, {kAll, kAll, kAll, kAll, kAll, 0x07}},
    {250, {0x0F, 0x0F, 0x03}},
    {251, {kAll, kAll, kAll, kAll, 0x00, 0x0F}},
    {252, {0x0F, 0x0F, 0x0F, 0x0F, 0x0F}},
    {253, {0x0F, 0x0F, 0x0F, 0x07}},
    {254, {0x0F, 0x0F, 0x0F}},
    {271, {kAll, 0x3F, 0x3F, kAll, kAll, kAll, 0x7F}},
    {274, {0x0F, kAll, kAll, kAll, kAll, kAll}},
    {276, {kAll, kAll, kAll, 0x1F}},
};

} // namespace

// What a device may send comes back bit for bit, but for what is reserved. Times of day of 271 are made to be
// some; values with dates, floats and texts have tests of their own.
TEST(RandomValues, OctetsOfCompositesComeBackBitForBit) {
    std::mt19937 random(7);
    unsigned types = 0;
    for (const auto& type : Datapoint::AllTypes()) {
        const unsigned bits = Datapoint::SizeInBits(type);
        const bool ownTest = type.main == 222 || type.main == 231 || type.main == 247 ||
                             (type.main > 254 && !s_bits.contains(type.main) && type.main != 272);
        if (type.main < 21 || bits <= 16 || ownTest) {
            continue;
        }
        ++types;
        const std::string name = Datapoint::ToString(type.GetNumber());
        for (int i = 0; i < 1000; ++i) {
            Bytes octets = RandomOctets(type, random);
            if (type.main == 271) {
                octets[0] &= 0xEF; // hours below 16
                octets[1] &= 0xDF; // minutes and seconds below 32
                octets[2] &= 0xDF;
            }
            const std::string text = FromBus(name, octets);
            if (const auto mask = s_bits.find(type.main); mask != s_bits.end()) {
                for (std::size_t at = 0; at < octets.size(); ++at) {
                    octets[at] &= mask->second.at(at);
                }
            }
            ASSERT_EQ(AsReceived(name, text), Hex(octets)) << name << ' ' << text;
            const std::string back = ToBus(name, text);
            ASSERT_TRUE(back == kRefused || back == Hex(octets)) << name << ' ' << text;
        }
    }
    EXPECT_GT(types, 70U);
}

TEST(RandomValues, DatesAndRegistersComeBackBitForBit) {
    std::mt19937 random(8);
    for (const auto* name :
         {"247.600", "256.001", "265.001", "268.1203", "269.1200", "281.1200", "284.1200"}) {
        const auto& type = *Datapoint::Find(*Datapoint::Parse(name));
        for (int i = 0; i < 1000; ++i) {
            Bytes octets = RandomOctets(type, random);
            for (std::size_t at = 0; at < (type.main == 256 ? 16U : 8U); at += 8) {
                octets[at + 1] = static_cast<std::uint8_t>(1 + random() % 12);
                octets[at + 2] = static_cast<std::uint8_t>(1 + random() % 31);
                octets[at + 3] = static_cast<std::uint8_t>(random() % 8 << 5 | random() % 24);
                octets[at + 4] = static_cast<std::uint8_t>(random() % 60);
                octets[at + 5] = static_cast<std::uint8_t>(random() % 60);
                octets[at + 7] &= 0xC0;
            }
            if (type.main == 265) {
                octets[8] &= 0x01;
            }
            if (type.main == 269) {
                octets[13] &= 0x03;
            }
            if (type.main > 280) {
                for (std::size_t at = 8; at < 20; ++at) {
                    octets[at] = at < 19 ? static_cast<std::uint8_t>(random() % 127 + 1) : std::uint8_t{0};
                }
                for (std::size_t at = 25; at < octets.size(); at += 6) {
                    octets[at] &= 0x03;
                }
            }
            const std::string text = FromBus(name, octets);
            ASSERT_EQ(ToBus(name, text), Hex(octets)) << name << ' ' << text;
        }
    }
}
