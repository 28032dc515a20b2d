// Octets from the bus: the head (Conversion.h), then the value. Where the head's last octet has its highest
// bit set, of whatever size they are, else cut or filled up to the size of the type. What decodes to
// something has a text that gives the same octets again, but for what no text keeps; where the text may go to
// the bus, the same ones go there.

#include "Conversion.h"
#include "MeaningfulBits.h"

namespace {

constexpr unsigned kAsTheyCome = 0x80;

unsigned SizeOf(const KNXDPT& dpt, const Datapoint::Type* type, std::size_t octets) {
    const unsigned size = type != nullptr ? Datapoint::SizeInBits(*type) : 0;
    if (size != 0)
        return size;
    return octets == 1 && dpt.sizeInBits < 8 ? dpt.sizeInBits : static_cast<unsigned>(octets) * 8;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < Fuzz::kHead)
        return 0;
    const std::span<const std::uint8_t, Fuzz::kHead> head(data, Fuzz::kHead);
    const KNXDPT dpt = Fuzz::ReadType(head);
    const auto* type = Datapoint::Find({dpt.main, dpt.sub});
    Fuzz::Bytes octets(data + Fuzz::kHead, data + size);
    unsigned bits = SizeOf(dpt, type, octets.size());
    if (dpt.main != 0 && (head[4] & kAsTheyCome) != 0)
        bits = static_cast<unsigned>(octets.size()) * 8;
    octets.resize((bits + 7) / 8);

    const auto value = Fuzz::Decode(dpt, {KnxStack::BinaryData(octets), bits});
    if (!value)
        return 0;
    const std::string text = Fuzz::Text(*value);
    const TAVVALUE read = Fuzz::Read(text);
    const auto received = Fuzz::EncodeReceived(dpt, read);
    Fuzz::Check(received.has_value() != value->IsNull() && read.IsNull() == value->IsNull());
    const auto sent = Fuzz::Encode(dpt, read);
    Fuzz::Check(!sent || sent == received);
    Fuzz::Check(Fuzz::EncodeReceived(dpt, *value) == received && Fuzz::Encode(dpt, *value) == sent);
    if (!received)
        return 0;

    const bool composite = value->GetType() == TavValueType::Json;
    const Fuzz::Bytes expected = Fuzz::Reduced(type, composite, bits, octets);
    Fuzz::Check(received->GetDefinedSize() == (bits < 8 ? bits : expected.size() * 8));
    Fuzz::Check(received->GetRawData() == KnxStack::BinaryData(expected));
    const auto again = Fuzz::Decode(dpt, *received);
    Fuzz::Check(again && again->GetType() == value->GetType() && Fuzz::Text(*again) == text);
    return 0;
}
