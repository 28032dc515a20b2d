// Why the last operation of the calling thread failed.
#pragma once

#include <cstdint>
#include <string>

namespace DeviceStackClient {

/// One per client; each thread sees its own text. A copy stands for the same client and may outlive it.
class LastError {
public:
    LastError();

    void Set(std::string text) const;
    void Clear() const;
    std::string Get() const; ///< "" when the last operation did not fail

private:
    const std::uint64_t m_client; ///< never given to another client
};

} // namespace DeviceStackClient
