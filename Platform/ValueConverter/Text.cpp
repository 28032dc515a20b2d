// 4.xxx and 16.xxx: characters of one octet each, ISO 8859-1 or its half that is ASCII; 234.xxx: two of them.
// 24.xxx, 28.xxx: as many as there are, with a NUL behind them.
#include "Tav/TAVVALUE.h"
#include "ValueConverter/Characters.h"
#include "ValueConverter/Layouts.h"

#include <algorithm>

namespace Datapoint {

namespace {

std::string_view UpToNul(std::span<const std::uint8_t> octets) {
    const auto end = std::find(octets.begin(), octets.end(), std::uint8_t{0});
    return {reinterpret_cast<const char*>(octets.data()), static_cast<std::size_t>(end - octets.begin())};
}

// Above 7Fh also for the ASCII types: whoever sends that means ISO 8859-1.
Status Decode(const Type&, std::span<const std::uint8_t> octets, TAVVALUE& value, Reason) {
    TextBuffer text;
    AppendLatin1(UpToNul(octets), text);
    value.SetText(text.View());
    return Status::Done;
}

template <char32_t Highest>
Status Encode(const Type&, std::string_view text, Octets& octets, Reason reason) {
    TextBuffer buffer;
    if (const Status status = ToLatin1(text, Highest, buffer, reason); status != Status::Done) {
        return status;
    }
    const std::string_view characters = buffer.View();
    if (characters.size() > octets.Size()) {
        return Refuse(Status::OutOfRange, reason, "'{}' has more than {} character{}", Excerpt(text),
                      octets.Size(), octets.Size() == 1 ? "" : "s");
    }
    std::copy(characters.begin(), characters.end(), octets.Data());
    return Status::Done;
}

Status EncodeVarying(const Type&, std::string_view text, Octets& octets, Reason reason) {
    TextBuffer buffer;
    if (const Status status = ToLatin1(text, kHighestLatin1, buffer, reason); status != Status::Done) {
        return status;
    }
    const std::string_view characters = buffer.View();
    octets.Resize(characters.size() + 1);
    std::copy(characters.begin(), characters.end(), octets.Data());
    return Status::Done;
}

Status DecodeUtf8(const Type&, std::span<const std::uint8_t> octets, TAVVALUE& value, Reason reason) {
    const std::string_view text = UpToNul(octets);
    if (!IsUtf8(text)) {
        return RefuseNotUtf8(reason);
    }
    value.SetText(text);
    return Status::Done;
}

Status EncodeUtf8(const Type&, std::string_view text, Octets& octets, Reason reason) {
    if (const Status status = CheckUtf8(text, reason); status != Status::Done) {
        return status;
    }
    octets.Resize(text.size() + 1);
    std::copy(text.begin(), text.end(), octets.Data());
    return Status::Done;
}

} // namespace

constinit const Layout kCharacterAscii{8, Decode, Encode<kHighestAscii>, true, Encode<kHighestLatin1>};
constinit const Layout kCharacterLatin1{8, Decode, Encode<kHighestLatin1>, true};
constinit const Layout kStringAscii{112, Decode, Encode<kHighestAscii>, true, Encode<kHighestLatin1>};
constinit const Layout kStringLatin1{112, Decode, Encode<kHighestLatin1>, true};
constinit const Layout kTwoCharacters{16, Decode, Encode<kHighestAscii>, true, Encode<kHighestLatin1>};
constinit const Layout kVaryingLatin1{0, Decode, EncodeVarying, true};
constinit const Layout kVaryingUtf8{0, DecodeUtf8, EncodeUtf8, true};

} // namespace Datapoint
