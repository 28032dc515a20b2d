// Reads octets one after the other. Internal to this folder.
#pragma once

#include "KnxIp/Frames.h"

#include <cstddef>
#include <cstdint>
#include <optional>

namespace KnxIp {

/// Takes octets from the front. The first failure sticks: everything read after it is 0, so that a reader
/// function needs to look at the error only once, at its end.
class FrameCursor {
public:
    explicit FrameCursor(Octets octets, std::size_t offset = 0) : m_octets(octets), m_offset(offset) {}

    Octets Rest() const { return m_error ? Octets{} : m_octets; }
    std::size_t Left() const { return m_error ? 0 : m_octets.size(); }
    const std::optional<KnxFrames::FrameError>& Error() const { return m_error; }

    void Fail(const char* cause) {
        if (!m_error)
            m_error = KnxFrames::FrameError::Malformed(cause, m_offset);
    }

    Octets Take(std::size_t count) {
        if (Left() < count) {
            Fail("the frame ends too early");
            return {};
        }
        const Octets taken = m_octets.first(count);
        m_octets = m_octets.subspan(count);
        m_offset += count;
        return taken;
    }

    std::uint8_t Take8() {
        const Octets taken = Take(1);
        return taken.empty() ? std::uint8_t{0} : taken[0];
    }
    std::uint16_t Take16() {
        const std::uint8_t high = Take8();
        return static_cast<std::uint16_t>(high << 8 | Take8());
    }
    std::uint32_t Take32() {
        const std::uint32_t high = Take16();
        return high << 16 | Take16();
    }

    /// A block that begins with its own length, as a cursor over what follows the length. `shortest` and
    /// `longest` are the sizes allowed, the length octet included.
    FrameCursor TakeBlock(std::size_t shortest, std::size_t longest, const char* wrongLength) {
        const std::uint8_t length = Left() == 0 ? std::uint8_t{0} : m_octets[0];
        if (Left() == 0)
            Fail("the frame ends too early");
        else if (length < shortest || length > longest)
            Fail(wrongLength);
        const std::size_t start = m_offset;
        const Octets block = m_error ? Octets{} : Take(length);
        return block.empty() ? FrameCursor({}, start) : FrameCursor(block.subspan(1), start + 1);
    }

private:
    Octets m_octets;
    std::size_t m_offset;
    std::optional<KnxFrames::FrameError> m_error;
};

/// Description information blocks up to the end of the frame. Those of other types say nothing that is used
/// here; makers add their own.
DeviceDescription TakeDescription(FrameCursor& cursor);

} // namespace KnxIp
