// Cost of a conversion, each way and for seven types of very different layouts, beside the least that it can
// cost: the octets copied once and one number printed or read. The counter "allocations" is the number of
// calls of operator new per conversion.
#include "AllocationCount.h"
#include "KnxStack/GroupValue.h"
#include "MapLookUp.h"
#include "Ratios.h"
#include "Tav/TAVVALUE.h"
#include "ValueConverter/DatapointTypes.h"
#include "Vesk/KnxValueConverter.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

// Values in turn: more than a branch predictor learns, no more than the nearest cache holds.
constexpr std::size_t kValues = 256;

std::vector<std::uint8_t> RandomOctets(std::size_t count, std::mt19937& random) {
    std::vector<std::uint8_t> octets(count);
    std::generate(octets.begin(), octets.end(), [&] { return static_cast<std::uint8_t>(random()); });
    return octets;
}

// Octets that a device with good manners sends: characters and times instead of whatever the bits hold.
std::vector<std::uint8_t> LikelyOctets(Datapoint::Number type, std::size_t count, std::mt19937& random) {
    auto octets = RandomOctets(count, random);
    switch (type.main) {
    case 1: octets[0] &= 1U; break;
    case 16: // up to 14 characters
        for (auto& octet : octets)
            octet = static_cast<std::uint8_t>(' ' + octet % 95);
        for (std::size_t at = 1 + random() % count; at < count; ++at)
            octets[at] = 0;
        break;
    case 19: // the day of the week of the date or none, summer time or not, synchronised
        octets = {octets[0],
                  static_cast<std::uint8_t>(1 + octets[1] % 12),
                  static_cast<std::uint8_t>(1 + octets[2] % 28),
                  static_cast<std::uint8_t>(octets[3] % 24),
                  static_cast<std::uint8_t>(octets[4] % 60),
                  static_cast<std::uint8_t>(octets[5] % 60),
                  static_cast<std::uint8_t>(0x04 | (octets[6] & 1U)),
                  0x80};
        break;
    default: break;
    }
    return octets;
}

struct Conversion {
    KnxStack::GroupValue groupValue;
    TAVVALUE value; // as its text is read
};

// Group values with the values that they stand for, taken by the converter both ways.
std::vector<Conversion> Conversions(Datapoint::Number type) {
    const unsigned bits = Datapoint::SizeInBits(*Datapoint::Find(type));
    const KNXDPT dpt = Datapoint::ToKnxDpt(type);
    std::mt19937 random(1);
    std::vector<Conversion> conversions;
    while (conversions.size() < kValues) {
        const auto octets = LikelyOctets(type, (bits + 7) / 8, random);
        const KnxStack::GroupValue sent(KnxStack::BinaryData(octets), bits);
        TAVVALUE value;
        if (!Datapoint::Decode(dpt, sent, value))
            continue;
        std::string text;
        value.Serialize(text, true);
        Conversion conversion;
        conversion.value.Deserialize(text);
        if (Datapoint::Encode(dpt, conversion.value, conversion.groupValue))
            conversions.push_back(std::move(conversion));
    }
    return conversions;
}

/// From the bus, with the text of the value.
void Decode(benchmark::State& state, Datapoint::Number type) {
    const Vesk::KnxValueConverter converter;
    const auto conversions = Conversions(type);
    KNXDPT dpt = Datapoint::ToKnxDpt(type);
    std::string buffer;
    std::size_t next = 0;
    const std::uint64_t before = Bench::AllocationCount();
    for ([[maybe_unused]] auto _ : state) {
        TAVVALUE value;
        converter.FromKnxValue(dpt, conversions[next++ % kValues].groupValue, value);
        benchmark::DoNotOptimize(value.TextView(buffer).data());
        benchmark::ClobberMemory();
    }
    Bench::ShowAllocations(state, before);
}

/// To the bus, from a value with its text.
void Encode(benchmark::State& state, Datapoint::Number type) {
    const Vesk::KnxValueConverter converter;
    const auto conversions = Conversions(type);
    KNXDPT dpt = Datapoint::ToKnxDpt(type);
    std::size_t next = 0;
    const std::uint64_t before = Bench::AllocationCount();
    for ([[maybe_unused]] auto _ : state) {
        KnxStack::GroupValue groupValue;
        benchmark::DoNotOptimize(converter.ToKnxValue(dpt, conversions[next++ % kValues].value, groupValue));
        benchmark::ClobberMemory();
    }
    Bench::ShowAllocations(state, before);
}

template <typename T>
using NumberOctets = std::array<std::uint8_t, sizeof(T)>;
using Text = std::array<char, 32>;

// Numbers over the whole range of their kind, as their octets.
template <typename T>
std::vector<NumberOctets<T>> Numbers() {
    std::mt19937 random(1);
    std::vector<NumberOctets<T>> numbers(kValues);
    for (auto& octets : numbers)
        std::generate(octets.begin(), octets.end(), [&] { return static_cast<std::uint8_t>(random()); });
    return numbers;
}

template <typename T>
std::to_chars_result Print(const NumberOctets<T>& octets, Text& text) {
    T number{};
    std::memcpy(&number, octets.data(), sizeof number);
    return std::to_chars(text.data(), text.data() + text.size(), number);
}

/// The least that a value from the bus costs: its octets copied to a number, the number printed.
template <typename T>
void PrintOctets(benchmark::State& state) {
    const auto numbers = Numbers<T>();
    std::size_t next = 0;
    for ([[maybe_unused]] auto _ : state) {
        Text text;
        benchmark::DoNotOptimize(Print<T>(numbers[next++ % kValues], text).ptr);
        benchmark::DoNotOptimize(text);
    }
}

/// The least that a value to the bus costs: a number read, and copied to its octets.
template <typename T>
void ReadOctets(benchmark::State& state) {
    std::vector<std::string> texts;
    for (const auto& octets : Numbers<T>()) {
        Text text;
        texts.emplace_back(text.data(), Print<T>(octets, text).ptr);
    }
    std::size_t next = 0;
    for ([[maybe_unused]] auto _ : state) {
        const std::string& text = texts[next++ % kValues];
        T number{};
        std::from_chars(text.data(), text.data() + text.size(), number);
        NumberOctets<T> octets;
        std::memcpy(octets.data(), &number, sizeof number);
        benchmark::DoNotOptimize(octets);
    }
}

using Benchmark = void (*)(benchmark::State&);

struct Floor {
    const char* number; // what is printed and read
    Benchmark print;
    Benchmark read;
};

constexpr Floor kFloor8{"8 bits", PrintOctets<std::uint8_t>, ReadOctets<std::uint8_t>};
constexpr Floor kFloor16{"16 bits", PrintOctets<std::uint16_t>, ReadOctets<std::uint16_t>};
constexpr Floor kFloor64{"64 bits", PrintOctets<std::uint64_t>, ReadOctets<std::uint64_t>};
constexpr Floor kFloorFloat{"float", PrintOctets<float>, ReadOctets<float>};

// A type, the number of its size, and how many times the floor a conversion may cost: twice the worst of
// several runs beside other work, so that what exceeds it is a change and no noise. The floor of 8 bits is
// one nanosecond; a call through the converter, a value and a group value cost ten of them.
struct Measured {
    Datapoint::Number type;
    const Floor& floor;
    double decodeBudget;
    double encodeBudget;
};

constexpr Measured s_measured[] = {
    {{1, 1}, kFloor8, 26, 21},         {{5, 1}, kFloor8, 31, 33},      {{9, 1}, kFloor16, 11, 25},
    {{14, 56}, kFloorFloat, 3.5, 8.5}, {{16, 0}, kFloor64, 3.5, 6},    // characters instead of digits
    {{19, 1}, kFloor64, 10, 10},       {{251, 600}, kFloor64, 16, 72}, // five fields: four colours and which
                                                                       // of them are valid
};

constexpr const char* kMapLookUp = "MapLookUp/1000";

std::vector<Bench::Ratio> RegisterAll() {
    std::vector<Bench::Ratio> ratios;
    benchmark::RegisterBenchmark("MapLookUp", Bench::MapLookUp)->Arg(1000);
    for (const Floor* floor : {&kFloor8, &kFloor16, &kFloor64, &kFloorFloat}) {
        benchmark::RegisterBenchmark((std::string("Print/") + floor->number).c_str(), floor->print);
        benchmark::RegisterBenchmark((std::string("Read/") + floor->number).c_str(), floor->read);
    }
    for (const Measured& measured : s_measured) {
        const std::string name = Datapoint::ToString(measured.type);
        const std::string decode = "Decode/" + name;
        const std::string encode = "Encode/" + name;
        const std::string number = measured.floor.number;
        const std::string print = std::string(name).append(" / copying and printing ").append(number);
        const std::string read = std::string(name).append(" / reading and copying ").append(number);
        benchmark::RegisterBenchmark(decode.c_str(), Decode, measured.type);
        benchmark::RegisterBenchmark(encode.c_str(), Encode, measured.type);
        ratios.push_back({"decoding " + print, decode, "Print/" + number, 1, measured.decodeBudget});
        ratios.push_back({"encoding " + read, encode, "Read/" + number, 1, measured.encodeBudget});
    }
    for (const std::string name : {"1.001", "5.001", "9.001"}) {
        const std::string what = name + " / a third of a map look-up";
        ratios.push_back({"decoding " + what, "Decode/" + name, kMapLookUp, 1.0 / 3, 1});
        ratios.push_back({"encoding " + what, "Encode/" + name, kMapLookUp, 1.0 / 3, 0});
    }
    return ratios;
}

} // namespace

int main(int argc, char** argv) {
    return Bench::RunWithRatios(argc, argv, RegisterAll());
}
