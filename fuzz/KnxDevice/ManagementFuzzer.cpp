// Bus management against any telegrams of two tools and any neighbours, in any time. Whatever they did, the
// device can be loaded afterwards.

#include "Downloader.h"
#include "Script.h"

#include "KnxDevice/DeviceImage.h"
#include "KnxDevice/Management.h"

#include <deque>

namespace {

using namespace KnxDevice;
using KnxFrames::LData;
using KnxFrames::Tpdu;
using TestSupport::DownloadStep;

constexpr IndividualAddress kOwn(1, 1, 250);
constexpr IndividualAddress kTools[] = {IndividualAddress(1, 1, 20), IndividualAddress(1, 1, 21)};

class Host final : public TestSupport::ManagementChannel, private ManagementListener {
public:
    Host() {
        auto* const object = m_objects.CreateInterfaceObject(50001);
        object->CreateArrayProperty(201, 0x12, 3, 1, 1)->SetActive(1); // three elements of two octets
        object->CreateProperty(202, 0x10, 1, 1)->SetActive(1);         // of variable length
        object->CreateProperty(203, 0x11, 0, 0)->SetActive(1);         // read only
    }

    /// Actors 0 and 1 are tools that send TPDUs as they stand. Actor 2 is what goes past the device and to
    /// all: the first octet says which, the others are the TPDU. Actor 3 is the first tool with a whole
    /// request: connected, numbered and acknowledged as it must be; without octets it ends its connection.
    void Do(const Fuzz::Step& step) {
        Fuzz::Pass(m_management, m_now, step.pause);
        if (step.actor == 3)
            Request(step.octets);
        else if (step.actor == 2)
            PassBy(step.octets);
        else if (!step.octets.empty() && step.octets.size() <= Tpdu::kCapacity)
            Receive(kTools[step.actor], Tpdu(step.octets), m_device.Address().raw, false);
        CheckSegments();
        if (++m_steps % kStepsPerImage == 0)
            CheckImage(kMostImageInBetween);
    }

    void Finish() {
        CheckImage(kMostImage);
        while (const auto next = m_management.NextTime()) {
            m_now = std::max(m_now, *next);
            m_management.OnTime(m_now);
        }
        Fuzz::Check(!m_partner);
        Download();
    }

    // The way of the downloader.
    void Send(const Tpdu& tpdu) override { Receive(kTools[0], tpdu, m_device.Address().raw, false); }
    std::optional<Tpdu> Receive() override {
        if (m_sent.empty())
            return std::nullopt;
        const auto tpdu = m_sent.front();
        m_sent.pop_front();
        return tpdu;
    }

private:
    // Large images, and one after each step, would slow everything down.
    static constexpr unsigned kStepsPerImage = 8;
    static constexpr std::size_t kMostImageInBetween = 4096;
    static constexpr std::size_t kMostImage = std::size_t{64} * 1024;

    void Receive(IndividualAddress from, const Tpdu& tpdu, std::uint16_t to, bool toGroup,
                 bool system = false) {
        LData telegram;
        telegram.control2 = toGroup ? 0xE0 : 0x60;
        if (system)
            telegram.control1 = static_cast<std::uint8_t>(telegram.control1 & ~LData::kBroadcast);
        telegram.source = from;
        telegram.destination = to;
        telegram.tpdu = tpdu;
        m_asking = from;
        m_management.OnTelegram(m_now, telegram);
        m_asking.reset();
    }

    void PassBy(KnxFrames::Octets octets) {
        if (octets.size() < 2 || octets.size() > Tpdu::kCapacity)
            return;
        const Tpdu tpdu(octets.subspan(1));
        const unsigned kind = octets[0];
        if (kind % 4 == 0) {
            Receive(kTools[kind >> 7], tpdu, 0, true, (kind & 0x40) != 0); // to all
            return;
        }
        const auto before = m_sent.size();
        m_mayAct = false;
        const auto neighbour = static_cast<std::uint16_t>(m_device.Address().raw ^ kind);
        Receive(kTools[kind >> 7], tpdu, neighbour, kind % 4 == 1);
        m_mayAct = true;
        Fuzz::Check(m_sent.size() == before);
    }

    void Request(KnxFrames::Octets octets) {
        if (octets.empty()) {
            Receive(kTools[0], {0x81}, m_device.Address().raw, false);
            return;
        }
        if (octets.size() < 2 || octets.size() > Tpdu::kCapacity)
            return;
        if (m_partner != kTools[0]) {
            Receive(kTools[0], {0x80}, m_device.Address().raw, false);
            m_sequence = 0;
        }
        m_sent.clear();
        Tpdu tpdu(octets);
        tpdu[0] = static_cast<std::uint8_t>(0x40 | m_sequence << 2 | (tpdu[0] & 0x03));
        Receive(kTools[0], tpdu, m_device.Address().raw, false);
        m_sequence = static_cast<std::uint8_t>((m_sequence + 1) % 16);
        const auto sent = m_sent;
        for (const auto& each : sent)
            if (KnxFrames::ClassifyTpdu(each, false, 0) == KnxFrames::TpduKind::DataConnected)
                Receive(kTools[0], {static_cast<std::uint8_t>(0xC2 | (each[0] & 0x3C))},
                        m_device.Address().raw, false);
    }

    void SendTelegram(const LData& telegram) override {
        Fuzz::Check(m_mayAct && telegram.tpdu.Size() >= 1 && telegram.tpdu.Size() <= 255);
        Fuzz::Check(telegram.code == KnxFrames::MessageCode::LDataReq);
        const auto kind = telegram.Kind();
        Fuzz::Check(kind != KnxFrames::TpduKind::Unknown && kind != KnxFrames::TpduKind::DataGroup &&
                    kind != KnxFrames::TpduKind::DataTagGroup && kind != KnxFrames::TpduKind::Connect);
        // Only to who asked just now, to all, or to the partner of the connection.
        const auto to = telegram.IndividualDestination();
        Fuzz::Check(telegram.IsToGroup() ? m_asking && telegram.destination == 0
                                         : to == m_asking || to == m_partner);
        if (m_sent.size() < kMostSent)
            m_sent.push_back(telegram.tpdu);
    }
    void OnRestart(Erase, IndividualAddress) override {
        Fuzz::Check(m_mayAct && m_asking && !m_partner);
        ++m_restarts;
    }
    void OnConnection(IndividualAddress tool, bool open) override {
        Fuzz::Check(m_mayAct && (open ? !m_partner : m_partner == tool));
        m_partner = open ? std::optional(tool) : std::nullopt;
    }
    void OnRefused(IndividualAddress, KnxFrames::Service, const char* reason) override {
        Fuzz::Check(m_mayAct && *reason != '\0');
    }

    void CheckSegments() const {
        std::vector<const Segment*> segments;
        for (unsigned index = 1; index <= 5; ++index) {
            const auto& memory = m_device.Loadable(static_cast<StandardObject>(index)).Memory();
            Fuzz::Check(memory.octets.size() <= Device::kLargestSegment);
            if (!memory.IsEmpty())
                segments.push_back(&memory);
        }
        for (const auto* one : segments) {
            Fuzz::Check(one->address + one->octets.size() <= Device::kMemoryEnd);
            for (const auto* other : segments)
                Fuzz::Check(one == other || one->address + one->octets.size() <= other->address ||
                            other->address + other->octets.size() <= one->address);
        }
    }

    /// What is kept is read again as it was, and a device that begins with it is the same.
    void CheckImage(std::size_t most) const {
        std::size_t size = 0;
        for (unsigned index = 1; index <= 5; ++index)
            size += m_device.Loadable(static_cast<StandardObject>(index)).Memory().octets.size();
        if (size > most)
            return;
        const auto image = WriteDeviceImage(m_device.State());
        const auto state = ReadDeviceImage(image);
        Fuzz::Check(WriteDeviceImage(state) == image);
        InterfaceObjects objects;
        Device other({.factoryAddress = kOwn}, objects);
        other.Restore(state);
        Fuzz::Check(WriteDeviceImage(other.State()) == image);
    }

    void Download() {
        // Who has set a key has it; here nobody asks for it.
        for (AccessLevel level = 0; level < kAnybody; ++level)
            m_device.SetKey(level, kNoKey);
        const std::vector<DownloadStep> steps = {
            {DownloadStep::Kind::Load, 1, 0, {0, 2, 0x0A, 0x03, 0x0A, 0x04}},
            {DownloadStep::Kind::Load, 2, 0, {0, 2, 0, 1, 0, 1, 0, 2, 0, 1}},
            {DownloadStep::Kind::Load, 3, 0, {0, 1, 0xD7, 0x08}},
            {DownloadStep::Kind::Load, 4, 0, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}},
            {DownloadStep::Kind::Load, 5, 0, {0xAA}},
            {DownloadStep::Kind::Property, 4, 13, {0, 0xFA, 0, 1, 1}}};
        m_sent.clear();
        const auto restarts = m_restarts;
        TestSupport::Downloader downloader(*this);
        Fuzz::Check(downloader.Run(steps) && m_restarts == restarts + 1 && !m_partner);
        for (const auto& step : steps)
            if (step.kind == DownloadStep::Kind::Load) {
                const auto& loaded = m_device.Loadable(static_cast<StandardObject>(step.object));
                Fuzz::Check(loaded.IsLoaded() && loaded.Memory().octets == step.octets);
            }
        const auto objects = m_device.LoadedGroupObjects();
        Fuzz::Check(objects.size() == 1 && objects[0].groupAddresses.size() == 2);
        CheckSegments();
        CheckImage(kMostImage);
    }

    static constexpr std::size_t kMostSent = 100;

    TimePoint m_now{std::chrono::seconds(1000)};
    InterfaceObjects m_objects;
    Device m_device{{.factoryAddress = kOwn}, m_objects};
    Management m_management{m_device, *this};
    std::deque<Tpdu> m_sent;
    std::optional<IndividualAddress> m_partner;
    std::optional<IndividualAddress> m_asking; // whose telegram is being looked at
    bool m_mayAct = true;
    std::uint8_t m_sequence = 0;
    unsigned m_restarts = 0;
    unsigned m_steps = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    return Fuzz::Play<Host>(data, size);
}
