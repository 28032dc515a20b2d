#include "ValueConverter/TypeTable.h"

#include "ValueConverter/Table/Main14To20.h"
#include "ValueConverter/Table/Main1To13.h"
#include "ValueConverter/Table/Main200To205.h"
#include "ValueConverter/Table/Main206To224.h"
#include "ValueConverter/Table/Main21To31.h"
#include "ValueConverter/Table/Main225To241.h"
#include "ValueConverter/Table/Main242To255.h"
#include "ValueConverter/Table/Main256To270.h"
#include "ValueConverter/Table/Main271To284.h"

#include <algorithm>
#include <array>

namespace Datapoint {

namespace {

// The rows of all tables, in ascending order; those for any sub number are taken out into a list of their
// own.
constexpr std::span<const Type> s_tables[] = {s_main1To13,    s_main14To20,   s_main21To31,
                                              s_main200To205, s_main206To224, s_main225To241,
                                              s_main242To255, s_main256To270, s_main271To284};

constexpr std::size_t CountRows(bool forAnySub) {
    std::size_t count = 0;
    for (const auto& table : s_tables) {
        count += static_cast<std::size_t>(std::count_if(table.begin(), table.end(), [&](const Type& type) {
            return (type.sub == kAnySub) == forAnySub;
        }));
    }
    return count;
}
constexpr std::size_t kMainNumbers = CountRows(true);

constexpr auto JoinTables() {
    std::array<Type, kMainNumbers + CountRows(false)> types{};
    std::size_t any = 0;
    std::size_t listed = kMainNumbers;
    for (const auto& table : s_tables) {
        for (const Type& type : table) {
            types[type.sub == kAnySub ? any++ : listed++] = type;
        }
    }
    return types;
}
constexpr auto s_types = JoinTables();

// The flow rate as the KNX Standard prints it. Devices and other programs use the raw integers, so this is
// the variant that has to be asked for.
constexpr Type s_flowRateInUnits = Num(13, 2, kV32TenThousandths, "DPT_FlowRate_m3/h", "m3/h", "0.0001");

// Open addressing over all rows, filled when the table is compiled.
constexpr std::size_t kSlots = 2048;
constexpr std::uint16_t kNoRow = 0xFFFF;

constexpr std::size_t SlotOf(std::uint32_t main, std::uint32_t sub) {
    return ((main << 16 | sub) * std::uint32_t{0x9E3779B1}) >> 21;
}

constexpr std::array<std::uint16_t, kSlots> MakeIndex() {
    std::array<std::uint16_t, kSlots> index{};
    index.fill(kNoRow);
    for (std::size_t row = 0; row < std::size(s_types); ++row) {
        std::size_t slot = SlotOf(s_types[row].main, s_types[row].sub);
        while (index[slot] != kNoRow) {
            slot = (slot + 1) % kSlots;
        }
        index[slot] = static_cast<std::uint16_t>(row);
    }
    return index;
}
constexpr auto s_index = MakeIndex();

// The longest way of a look-up to its row or to an empty slot.
constexpr std::size_t LongestSearch() {
    std::size_t longest = 0;
    std::size_t run = 0;
    for (const std::uint16_t row : s_index) {
        run = row == kNoRow ? 0 : run + 1;
        longest = std::max(longest, run);
    }
    return longest + 1;
}
static_assert(std::size(s_types) < kSlots / 2 && LongestSearch() <= 10, "look-ups take constant time");

const Type* FindRow(std::uint16_t main, std::uint16_t sub) {
    for (std::size_t slot = SlotOf(main, sub); s_index[slot] != kNoRow; slot = (slot + 1) % kSlots) {
        const Type& type = s_types[s_index[slot]];
        if (type.main == main && type.sub == sub) {
            return &type;
        }
    }
    return nullptr;
}

} // namespace

std::span<const Type> AllTypes() {
    return std::span(s_types).subspan(kMainNumbers);
}

const Type* Find(Number number) {
    const Type* type = FindRow(number.main, number.sub);
    return type != nullptr ? type : FindRow(number.main, kAnySub);
}

const Type* FindRule(const KNXDPT& dpt) {
    const bool asked = dpt.reserved == kStandardResolution && dpt.main == s_flowRateInUnits.main &&
                       dpt.sub == s_flowRateInUnits.sub;
    return asked ? &s_flowRateInUnits : Find({dpt.main, dpt.sub});
}

} // namespace Datapoint
