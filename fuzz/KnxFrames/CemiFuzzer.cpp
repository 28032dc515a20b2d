// cEMI messages: what is read is written as something that reads the same.

#include "Fuzz.h"

#include "KnxFrames/Cemi.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace KnxFrames;
    const auto parsed = ParseCemi({data, size});
    if (!parsed) {
        Fuzz::Check(parsed.Error().offset <= size);
        return 0;
    }
    const auto* frame = std::get_if<LData>(&*parsed);
    if (frame == nullptr)
        return 0;
    CemiOctets octets;
    EncodeCemi(*frame, octets);
    const auto again = ParseLData(octets);
    Fuzz::Check(again && *again == *frame);
    Fuzz::Check(!Describe(*frame).empty());
    if (const auto service = ReadGroupService(frame->tpdu)) {
        Fuzz::Check(service->longValue.size() + 2 == frame->tpdu.Size());
        if (!service->longValue.empty()) {
            const auto made = MakeGroupLongValue(service->kind, service->longValue);
            Fuzz::Check(made && made->Size() == frame->tpdu.Size());
        }
    }
    return 0;
}
