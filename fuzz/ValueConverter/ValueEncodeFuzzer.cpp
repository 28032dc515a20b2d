// Text for the bus: the head (Conversion.h), then the native text.
// What encodes decodes, never to null and never to another number than was written, and its text gives the
// same octets.

#include "Conversion.h"

#include <charconv>
#include <cmath>

namespace {

// How far a value on the bus may be from the number that was to be sent: to the middle between two values of
// its type, and a little for the rounding of double, in which the two are compared.
double LargestDistance(const KNXDPT& dpt, double number) {
    const auto halfOf = [](double step) { return step / 2 * (1 + 1e-9); };
    const double size = std::abs(number);
    const double rounding = size * 1e-15;
    switch (dpt.main) {
    case 5: return dpt.sub == 3 ? 0.8 : dpt.sub == 1 ? 0.3 : 0; // 360/255 or 100/255, and one decimal
    case 7:
    case 8:
        return dpt.sub == 3    ? halfOf(10)
               : dpt.sub == 4  ? halfOf(100)
               : dpt.sub == 10 ? halfOf(0.01) + rounding
                               : 0;
    case 9: return std::max(halfOf(0.01), size / 2048) + rounding;
    case 13: return dpt.reserved != 0 && dpt.sub == 2 ? halfOf(0.0001) + rounding : rounding;
    case 14: return size * 6e-8 + 1e-45;
    default: return rounding;
    }
}

bool IsNumber(TavValueType type) {
    return type == TavValueType::Boolean || type == TavValueType::Integer || type == TavValueType::Unsigned ||
           type == TavValueType::Float || type == TavValueType::Double;
}

// Nothing is clipped, nothing wraps.
void CheckDistance(const KNXDPT& dpt, const std::string& text, const TAVVALUE& decoded) {
    double number = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
    if (result.ec != std::errc() || result.ptr != text.data() + text.size() || !std::isfinite(number))
        return; // a word, blanks around: not the form that this check reads
    Fuzz::Check(std::abs(decoded.ToDouble() - number) <= LargestDistance(dpt, number));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < Fuzz::kHead)
        return 0;
    const KNXDPT dpt = Fuzz::ReadType(std::span<const std::uint8_t, Fuzz::kHead>(data, Fuzz::kHead));
    const std::string text(reinterpret_cast<const char*>(data) + Fuzz::kHead, size - Fuzz::kHead);
    const TAVVALUE value = Fuzz::Read(text);
    const auto received = Fuzz::EncodeReceived(dpt, value);
    const auto sent = Fuzz::Encode(dpt, value);
    Fuzz::Check(!sent || sent == received);
    if (!received)
        return 0;
    const auto decoded = Fuzz::Decode(dpt, *received);
    Fuzz::Check(decoded && (!sent || !decoded->IsNull()));
    if (decoded->IsNull())
        return 0;
    if (IsNumber(decoded->GetType()))
        CheckDistance(dpt, text, *decoded);
    const TAVVALUE read = Fuzz::Read(Fuzz::Text(*decoded));
    Fuzz::Check(Fuzz::EncodeReceived(dpt, read) == received);
    Fuzz::Check(Fuzz::EncodeReceived(dpt, *decoded) == received);
    const auto again = Fuzz::Encode(dpt, read);
    Fuzz::Check(Fuzz::Encode(dpt, *decoded) == again);
    // A number just below the type's range may be received as its lowest value.
    Fuzz::Check(sent ? again == sent : !again || again == received);
    return 0;
}
