// Cuts the octets of a TCP stream into KNXnet/IP frames.
#pragma once

#include "KnxFrames/FixedOctets.h"
#include "KnxFrames/Outcome.h"

#include <cstddef>

namespace KnxIp {

/// Finds the frames in a stream by the total length in each header. It looks at nothing else: what a frame
/// says is ReadFrame()'s affair. Memory is fixed. A value type, not synchronised.
class FrameSplitter {
public:
    /// Longer than any frame that is read here. A longer one is passed over, so that a service of a later
    /// version costs nobody the stream.
    static constexpr std::size_t kLongestFrame = 1024;

    struct Piece {
        enum class Kind {
            Nothing,   ///< the octets are used up, and no frame is complete
            Whole,     ///< `frame` is one, header included
            TooLong,   ///< a frame of more than kLongestFrame octets begins and will be passed over
            BadHeader, ///< no KNXnet/IP header where one must be: the rest of the stream has no meaning
        };
        Kind kind = Kind::Nothing;
        /// Points into the octets that were given, or into the splitter; valid until it is called again.
        KnxFrames::Octets frame;
        KnxFrames::FrameError error; ///< of TooLong and BadHeader
    };

    /// Takes the next piece from the front of `octets`, which is shortened by what was taken. To be called
    /// until it is Nothing. Behind a BadHeader everything is BadHeader.
    Piece Take(KnxFrames::Octets& octets);

private:
    void Fill(KnxFrames::Octets& octets, std::size_t size);
    Piece RefuseHeader(const KnxFrames::FrameError& error);

    KnxFrames::FixedOctets<kLongestFrame> m_begun; // the beginning of a frame, or one that was given out
    bool m_isGivenOut = false;                     // m_begun is
    std::size_t m_toSkip = 0;                      // octets of a frame that is too long
    bool m_isBad = false;
    KnxFrames::FrameError m_badness;
};

} // namespace KnxIp
