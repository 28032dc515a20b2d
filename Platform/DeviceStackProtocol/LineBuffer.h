// Cuts a byte stream into lines.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace DeviceStack {

/// Longest message to the device stack, in bytes without its line feed.
inline constexpr std::size_t kMaxRequestLine = std::size_t{1024} * 1024;

/// Longest message that a client takes from the device stack: a process view of 65,534 data points fits.
inline constexpr std::size_t kMaxReplyLine = std::size_t{64} * 1024 * 1024;

/// Collects received bytes and hands out whole lines. Not synchronised.
class LineBuffer {
public:
    /// `maxLine`: longest line in bytes, without its line feed.
    explicit LineBuffer(std::size_t maxLine) : m_maxLine(maxLine) {}

    /// Adds received bytes. Ignored once IsTooLong().
    void Append(std::string_view bytes);

    /// The next whole line without its line feed; nothing when more bytes are needed. The view is valid until
    /// the next Append().
    std::optional<std::string_view> Next();

    /// True when a line is longer than allowed. Lines before it are still handed out; after it there are
    /// none, because where the next message begins is not known: the connection is to be closed.
    bool IsTooLong() const { return m_tooLong; }

    /// Bytes of the line that has begun and is not ended.
    std::size_t Pending() const { return m_bytes.size() - m_begin; }

private:
    const std::size_t m_maxLine;
    std::string m_bytes;
    std::size_t m_begin = 0;    // first byte that was not handed out
    std::size_t m_searched = 0; // no line feed in [m_begin, m_searched)
    bool m_tooLong = false;
};

} // namespace DeviceStack
