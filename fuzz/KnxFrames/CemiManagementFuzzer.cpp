// Messages of local device management: what is read is written as it was.

#include "Fuzz.h"

#include "KnxFrames/CemiManagement.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const KnxFrames::Octets octets(data, size);
    const auto message = KnxFrames::ParseManagement(octets);
    if (!message) {
        Fuzz::Check(message.Error().offset <= size);
        return 0;
    }
    const auto written = KnxFrames::EncodeManagement(*message);
    Fuzz::Check(std::ranges::equal(written.View(), octets));
    const auto refusal = KnxFrames::EncodeManagement(message->Refusal(KnxFrames::PropertyError::ReadOnly));
    Fuzz::Check(static_cast<bool>(KnxFrames::ParseManagement(refusal)));
    return 0;
}
