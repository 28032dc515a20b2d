#include "KnxIp/FrameSplitter.h"

#include "KnxIp/FrameLayout.h"

#include <algorithm>
#include <utility>

namespace KnxIp {

using KnxFrames::FrameError;
using KnxFrames::Octets;

FrameSplitter::Piece FrameSplitter::Take(Octets& octets) {
    if (m_isBad)
        return RefuseHeader(m_badness);
    if (std::exchange(m_isGivenOut, false))
        m_begun.Clear();
    const std::size_t skipped = std::min(m_toSkip, octets.size());
    octets = octets.subspan(skipped);
    m_toSkip -= skipped;
    // In the usual case a whole frame has come at once, and nothing is copied.
    const bool isWhole = m_begun.IsEmpty() && octets.size() >= Layout::kHeaderSize;
    if (!isWhole && m_begun.Size() < Layout::kHeaderSize)
        Fill(octets, Layout::kHeaderSize);
    const Octets header = m_begun.IsEmpty() ? octets : m_begun.View();
    if (header.size() < Layout::kHeaderSize)
        return {};
    if (header[0] != Layout::kHeaderSize)
        return RefuseHeader(FrameError::Malformed("the KNXnet/IP header is not 6 octets long", 0));
    if (header[1] != Layout::kVersion)
        return RefuseHeader(FrameError::Unsupported("the KNXnet/IP version is not 1.0", 1));
    const std::size_t total = static_cast<std::size_t>(header[4]) << 8 | header[5];
    if (total < Layout::kHeaderSize)
        return RefuseHeader(FrameError::Malformed("the total length is shorter than the header", 4));
    if (total > kLongestFrame) {
        m_toSkip = total - m_begun.Size();
        m_begun.Clear();
        return {Piece::Kind::TooLong, {}, FrameError::Unsupported("the frame is longer than any known", 4)};
    }
    if (m_begun.IsEmpty() && octets.size() >= total) {
        const Octets frame = octets.first(total);
        octets = octets.subspan(total);
        return {Piece::Kind::Whole, frame, {}};
    }
    Fill(octets, total);
    if (m_begun.Size() < total)
        return {};
    m_isGivenOut = true;
    return {Piece::Kind::Whole, m_begun.View(), {}};
}

/// Lets the beginning of a frame grow to `size`, as far as there are octets.
void FrameSplitter::Fill(Octets& octets, std::size_t size) {
    const std::size_t count = std::min(size - m_begun.Size(), octets.size());
    m_begun.Append(octets.first(count));
    octets = octets.subspan(count);
}

FrameSplitter::Piece FrameSplitter::RefuseHeader(const FrameError& error) {
    m_isBad = true;
    m_badness = error;
    return {Piece::Kind::BadHeader, {}, error};
}

} // namespace KnxIp
