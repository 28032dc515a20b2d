// Messages of the group address translation: whatever one puts on the bus, if anything, becomes a message
// again that means the same telegram, and the very same message when it was in the form in which they are
// sent.

#include "Fuzz.h"
#include "GroupAddressTranslationHandler.h"
#include "KnxStack/GroupValue.h"
#include "KnxStack/IGroupObject.h"
#include "KnxStack/IGroupValueService.h"
#include "SilentClient.h"

#include <optional>
#include <string_view>

namespace {

using EventType = GroupAddressTranslationHandler::EventType;

std::optional<unsigned> LowerCaseHex(std::string_view text) {
    unsigned number = 0;
    for (const char c : text) {
        const bool digit = c >= '0' && c <= '9';
        if (!digit && (c < 'a' || c > 'f'))
            return std::nullopt;
        number = number << 4 | static_cast<unsigned>(digit ? c - '0' : c - 'a' + 10);
    }
    return number;
}

/// The size that a message says, when it is written as it is sent; else 0.
unsigned SizeOf(std::string_view message) {
    return message.size() < 7 ? 0 : LowerCaseHex(message.substr(5, 2)).value_or(0);
}

struct Telegram {
    std::uint16_t co;
    EventType type;
    KnxStack::GroupValue value;
    bool operator==(const Telegram&) const = default;
};

/// COs with an odd number have the size that the message says, all others 8 bits. Those from 8000h on take
/// nothing.
class Bus : public KnxStack::IGroupValueService, private KnxStack::IGroupObject {
public:
    void Expect(std::string_view message) {
        telegram.reset();
        count = 0;
        m_messageSize = SizeOf(message);
    }
    static bool Takes(std::uint16_t co) { return co < 0x8000; }
    unsigned SizeOfCo(std::uint16_t co) const { return co % 2 != 0 ? m_messageSize : 8; }

    void RegisterGroupValueUser(KnxStack::IGroupValueUser*) override {}
    bool SendGroupValue(std::uint16_t co, const KnxStack::GroupValue& value, unsigned kind) override {
        Fuzz::Check(kind == kWrite || kind == kResponse);
        return Send({co, kind == kWrite ? EventType::Write : EventType::Response, value});
    }
    bool SendReadRequest(std::uint16_t co) override { return Send({co, EventType::Read, {}}); }
    const IGroupObject& GetGroupObject(std::uint16_t co) override {
        m_described = co;
        return *this;
    }

    std::optional<Telegram> telegram;
    unsigned count = 0;

private:
    bool Send(Telegram sent) {
        ++count;
        telegram = std::move(sent);
        return Takes(telegram->co);
    }

    bool Exists(int) const override { return true; }
    bool IsCommunicationEnabled() const override { return true; }
    std::uint8_t GetSizeCode() const override { return 8; }
    unsigned GetLengthInBytes() const override { return 1; }
    std::int16_t GetElementWidth() const override { return static_cast<std::int16_t>(SizeOfCo(m_described)); }
    std::int16_t GetElementCount() const override { return 1; }

    unsigned m_messageSize = 0;
    std::uint16_t m_described = 0;
};

class Client : public Fuzz::SilentClient {
public:
    using SilentClient::Command;
    std::string Command(const std::string& json) override {
        constexpr std::string_view kBefore =
            R"({"command":"EmitEvent","eventType":"application","to":"target","message":")";
        Fuzz::Check(json.starts_with(kBefore) && json.ends_with("\"}"));
        message = json.substr(kBefore.size(), json.size() - kBefore.size() - 2);
        return "{}";
    }
    std::string message;
};

/// True for what is sent, and must be taken: a telegram of a CO in the form of the sender, of the CO's size.
bool IsCanonical(std::string_view message, const Bus& bus) {
    if (message.size() < 5 || std::string_view("!#?").find(message[0]) == std::string_view::npos)
        return false;
    const unsigned co = LowerCaseHex(message.substr(1, 4)).value_or(0);
    if (co == 0)
        return false;
    if (message[0] == '?')
        return message.size() == 5;
    const unsigned size = SizeOf(message);
    return size != 0 && size == bus.SizeOfCo(static_cast<std::uint16_t>(co)) &&
           message.size() == 7 + 2 * ((size + 7) / 8) && LowerCaseHex(message.substr(7)).has_value();
}

void Run(std::string_view message) {
    static Bus bus;
    static Client client;
    static GroupAddressTranslationHandler handler;
    Fuzz::LogToNowhere();
    handler.SetTargetName("target");
    handler.Init(&client, &bus);

    bus.Expect(message);
    const bool result = handler.OnMessageReceived(message);
    Fuzz::Check(bus.count <= 1);
    const bool canonical = IsCanonical(message, bus);
    if (!bus.telegram) {
        Fuzz::Check(!result && !canonical);
        return;
    }
    const Telegram telegram = *bus.telegram;
    Fuzz::Check(result == Bus::Takes(telegram.co));
    Fuzz::Check(telegram.co != 0);
    if (telegram.type != EventType::Read) {
        Fuzz::Check(telegram.value.GetDefinedSize() == bus.SizeOfCo(telegram.co));
        Fuzz::Check(telegram.value.GetRawData().GetSize() == (telegram.value.GetDefinedSize() + 7) / 8);
    }

    Fuzz::Check(handler.SendEvent(telegram.co, telegram.type, &telegram.value));
    const std::string again = client.message;
    if (canonical)
        Fuzz::Check(again == message);
    bus.Expect(again);
    Fuzz::Check(IsCanonical(again, bus));
    Fuzz::Check(handler.OnMessageReceived(again) == Bus::Takes(telegram.co));
    Fuzz::Check(bus.telegram == telegram);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Run({reinterpret_cast<const char*>(data), size});
    return 0;
}
