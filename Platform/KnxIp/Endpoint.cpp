#include "KnxIp/Endpoint.h"

namespace KnxIp {

std::string Endpoint::ToString() const {
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        text += std::to_string(address >> shift & 0xFF);
        text += shift > 0 ? '.' : ':';
    }
    return text + std::to_string(port);
}

} // namespace KnxIp
