// When a field application may be told of changes and asked for values.
#pragma once

#include "DeviceStackServer/Instant.h"

namespace DeviceStackServer {

/// An application program announces "configurationLoaded" and is in its final state one second later; what
/// reaches it before is lost. The window opens half a second after that. Reads no clock; not synchronised.
class StartWindow {
public:
    static constexpr Milliseconds kAfterLoaded{1500};

    /// Closed until OnConfigurationLoaded(): the application registered, or its configuration changes.
    void Close() { m_state = State::Closed; }

    /// Open for good: an application that needs no start.
    void Open() { m_state = State::Open; }

    /// The window opens at the returned time.
    Milliseconds OnConfigurationLoaded(Milliseconds now) {
        m_state = State::Opening;
        m_opensAt = now + kAfterLoaded;
        return m_opensAt;
    }

    /// True when the window opens by this call; at most once for each OnConfigurationLoaded().
    bool Advance(Milliseconds now) {
        if (m_state != State::Opening || now < m_opensAt)
            return false;
        m_state = State::Open;
        return true;
    }

    bool IsOpen() const { return m_state == State::Open; }

    /// The application has announced that its configuration is loaded.
    bool IsLoaded() const { return m_state == State::Open || m_state == State::Opening; }

private:
    enum class State { Closed, Opening, Open };
    State m_state = State::Open;
    Milliseconds m_opensAt{};
};

} // namespace DeviceStackServer
