// The tick counter in the hands of a test.
#pragma once

#include <cstdint>

/// While it lives, TavTickCount::Now() is what the test says; otherwise it counts as ever. The test program
/// defines TavTickCount::Now() itself for that, which wins over the one of libTavBase.so. One at a time.
class OwnTicks {
public:
    explicit OwnTicks(std::uint64_t now) { Set(now); } // not 0
    ~OwnTicks() { Set(0); }
    OwnTicks(const OwnTicks&) = delete;
    OwnTicks& operator=(const OwnTicks&) = delete;

    /// Any thread.
    void Set(std::uint64_t now);
};
