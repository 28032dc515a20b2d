// Control clients: whatever a line says, it is answered with one line of JSON, or not at all, and what is
// sent for it to the bus can be put into words. The input is one request, and once more the octets of a
// telegram.

#include "Fuzz.h"

#include "KnxStackHost/Control/ControlCommands.h"

#include <boost/json.hpp>

#include <string_view>
#include <vector>

namespace {

using namespace KnxStackHost;

/// Group addresses that the corpus uses, with a type of each size.
const AddressBook& Book() {
    static const AddressBook book = [] {
        std::vector<ConfiguredObject> objects;
        std::uint16_t address = 0x0A00;
        for (const auto* dpt : {"1.001", "2.001", "3.007", "5.001", "9.001", "10.001", "14.056", "16.001",
                                "19.001", "20.102", "28.001", "232.600"}) {
            ConfiguredObject object;
            object.name = dpt;
            object.dpt = Datapoint::Parse(dpt);
            object.definition.groupAddresses = {KnxFrames::GroupAddress(address++)};
            objects.push_back(std::move(object));
        }
        return AddressBook(objects);
    }();
    return book;
}

void CheckOneLine(const std::string& line) {
    Fuzz::Check(!line.empty() && line.find('\n') == line.size() - 1);
    Fuzz::Check(boost::json::parse(line).is_object());
}

void CheckWords(const KnxFrames::LData& telegram) {
    const auto words = Describe(telegram, Book());
    const auto line = MonitorLine(words);
    for (const char c : line)
        Fuzz::Check(static_cast<unsigned char>(c) >= ' ' && c != '\x7F');
    CheckOneLine(TelegramMessage(telegram, words, "tunnel", std::chrono::system_clock::time_point()));
}

class Target final : public ControlTarget {
public:
    DeviceStatus GetDeviceStatus() const override { return m_status; }
    LinksStatus GetLinksStatus() const override { return {}; }
    void SetProgrammingMode(bool on) override { m_status.programmingMode = on; }
    std::string SendToGroup(const KnxFrames::LData& telegram) override {
        CheckWords(telegram);
        return {};
    }
    std::string Inject(const KnxFrames::LData& telegram) override {
        CheckWords(telegram);
        return {};
    }

private:
    DeviceStatus m_status;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    Target target;
    bool watches = false;
    if (const auto answer = AnswerControl(text, target, watches); !answer.empty())
        CheckOneLine(answer);
    if (const auto telegram = KnxFrames::ParseLData({data, size}); telegram && !telegram->tpdu.IsEmpty())
        CheckWords(*telegram);
    return 0;
}
