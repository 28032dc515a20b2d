#include "KnxStack/GroupValue.h"
#include "KnxStack/IApplicationProgram.h"
#include "Tav/TAVVALUE.h"

#include <cstdio>

static_assert(KnxStack::IApplicationProgram::kApiVersion == 23);

int main() {
    TAVVALUE value;
    value.Deserialize("2024-05-01T12:00:00");
    const KnxStack::GroupValue warm({0x0C, 0x1A}, 16);
    std::printf("%s %.2f\n", value.ToString().c_str(), warm.GetAsFloat16());
    return 0;
}
