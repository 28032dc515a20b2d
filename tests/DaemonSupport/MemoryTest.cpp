#include "DaemonSupport/Memory.h"

#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <vector>

namespace DaemonSupport {
namespace {

long ResidentPages() {
    std::ifstream file("/proc/self/statm");
    long size = 0;
    long resident = 0;
    file >> size >> resident;
    return resident;
}

} // namespace

TEST(Memory, SmallPiecesThatWereFreedAmongOthersGoBackToTheSystem) {
    constexpr std::size_t kPieces = 40000;
    constexpr std::size_t kPiece = 1000;
    constexpr long kPages = kPieces * kPiece / 4096;
    std::vector<std::unique_ptr<char[]>> pieces;
    for (std::size_t number = 0; number < kPieces; ++number)
        pieces.push_back(std::make_unique<char[]>(kPiece));
    for (std::size_t number = 0; number < kPieces; ++number)
        if (number % 100 != 99)
            pieces[number].reset();
    const auto before = ResidentPages();
    ASSERT_GT(before, kPages);
    ReturnFreeMemory();
    EXPECT_LT(ResidentPages(), before - kPages / 2);
}

} // namespace DaemonSupport
