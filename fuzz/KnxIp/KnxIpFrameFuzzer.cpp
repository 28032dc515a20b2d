// KNXnet/IP frames: what is read is written as a frame that reads and writes the same.

#include "Fuzz.h"

#include "KnxIp/Frames.h"

#include <type_traits>

namespace {

using namespace KnxIp;

template <class T>
bool IsWritable(const T&) {
    return true;
}
bool IsWritable(const TunnellingRequest& frame) {
    return frame.cemi.size() <= KnxFrames::kLongestCemi;
}
bool IsWritable(const TunnellingFeature& frame) {
    return frame.value.size() <= KnxFrames::kLongestCemi;
}
bool IsWritable(const DeviceConfigurationRequest& frame) {
    return frame.cemi.size() <= KnxFrames::kLongestCemi;
}
bool IsWritable(const RoutingIndication& frame) {
    return frame.cemi.size() <= KnxFrames::kLongestCemi;
}
bool IsWritable(const SearchRequestExtended& frame) {
    return frame.parameters.size() <= 256;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto frame = ReadFrame({data, size});
    if (!frame) {
        Fuzz::Check(frame.Error().offset <= size);
        return 0;
    }
    std::visit(
        [](const auto& content) {
            if (!IsWritable(content))
                return;
            const Datagram written = WriteFrame(content);
            const auto again = ReadFrame(written);
            using Content = std::decay_t<decltype(content)>;
            Fuzz::Check(again && std::holds_alternative<Content>(*again));
            Fuzz::Check(WriteFrame(std::get<Content>(*again)) == written);
        },
        *frame);
    return 0;
}
