// Description of one group object.
#pragma once

#include <cstdint>

namespace KnxStack {

/// What the group object table says of one object. A view of the current table: after a download the same
/// object answers with the new content. Any thread; waits for nothing.
class IGroupObject {
public:
    virtual ~IGroupObject() = default;

    /// True when the object exists in application program `applicationProgram` (1 is the first). Every other
    /// operation answers 0 or false for an object that does not exist.
    virtual bool Exists(int applicationProgram) const = 0;

    /// The communication flag.
    virtual bool IsCommunicationEnabled() const = 0;

    /// 1 to 7: that many bits. 8: whole bytes, see GetLengthInBytes().
    virtual std::uint8_t GetSizeCode() const = 0;

    /// Bytes that a value takes, at least 1.
    virtual unsigned GetLengthInBytes() const = 0;

    /// Width of one element in bits and number of elements; their product is the size of the value in bits.
    virtual std::int16_t GetElementWidth() const = 0;
    virtual std::int16_t GetElementCount() const = 0;
};

} // namespace KnxStack
