#include "Placement.h"

#include <sched.h>

#include <vector>

namespace Bench {

namespace {

std::vector<int> AllowedCores() {
    cpu_set_t set;
    CPU_ZERO(&set);
    std::vector<int> cores;
    if (sched_getaffinity(0, sizeof set, &set) == 0)
        for (int core = 0; core < CPU_SETSIZE; ++core)
            if (CPU_ISSET(core, &set))
                cores.push_back(core);
    return cores;
}

} // namespace

void RunOn(Side side) {
    static const std::vector<int> cores = AllowedCores();
    if (cores.size() < 2)
        return;
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(cores[side == Side::Measuring ? 0 : 1], &set);
    sched_setaffinity(0, sizeof set, &set);
}

} // namespace Bench
