// A device with its management, as a tool sees it: octets in, octets out.
#pragma once

#include "KnxDevice/Management.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <charconv>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace KnxDevice {

using KnxFrames::LData;

inline constexpr IndividualAddress kOwn(1, 1, 250); // 11FAh
inline constexpr IndividualAddress kTool(1, 1, 20);

inline std::string Hex(Octets octets) {
    std::string text;
    for (const auto octet : octets)
        text += fmt::format("{:02x}", octet);
    return text;
}

/// "03d5 00 0b": blanks do not count.
inline Tpdu FromHex(std::string_view digits) {
    std::string packed;
    for (const char each : digits)
        if (each != ' ')
            packed += each;
    Tpdu tpdu;
    for (std::size_t at = 0; at + 1 < packed.size(); at += 2) {
        std::uint8_t octet = 0;
        std::from_chars(packed.data() + at, packed.data() + at + 2, octet, 16);
        tpdu.Append(octet);
    }
    return tpdu;
}

inline DeviceIdentity Identity() {
    DeviceIdentity identity;
    identity.serialNumber = {0x00, 0xFA, 0x11, 0x22, 0x33, 0x44};
    identity.manufacturer = 0x00FA;
    identity.hardwareType = {0, 0, 0, 0, 1, 2};
    identity.order = {'O', 'P', 'E', 'N'};
    identity.factoryAddress = kOwn;
    return identity;
}

class Managed : public testing::Test, protected ManagementListener {
protected:
    Managed() {
        m_device.SetListener([this](DeviceChange change) { m_changes.push_back(change); });
    }

    void SendTelegram(const LData& telegram) override { m_sent.push_back(telegram); }
    void OnRestart(Erase erase, IndividualAddress by) override {
        m_events.push_back(fmt::format("{} by {}", ToString(erase), by.ToString()));
    }
    void OnConnection(IndividualAddress tool, bool open) override {
        m_events.push_back(fmt::format("{} {}", tool.ToString(), open ? "connected" : "gone"));
    }
    void OnRefused(IndividualAddress, KnxFrames::Service service, const char* reason) override {
        m_refused.push_back(KnxFrames::ToString(service));
        m_reasons.emplace_back(reason);
    }

    void Receive(const Tpdu& tpdu, IndividualAddress to = kOwn) {
        LData telegram;
        telegram.control2 = 0x60;
        telegram.source = kTool;
        telegram.destination = to.raw;
        telegram.tpdu = tpdu;
        m_management.OnTelegram(m_now, telegram);
    }
    void ReceiveBroadcast(std::string_view digits, bool system = false) {
        LData telegram;
        telegram.source = kTool;
        telegram.destination = 0;
        telegram.tpdu = FromHex(digits);
        if (system)
            telegram.control1 &= static_cast<std::uint8_t>(~LData::kBroadcast);
        m_management.OnTelegram(m_now, telegram);
    }
    std::vector<std::string> Sent() {
        std::vector<std::string> texts;
        for (const auto& telegram : std::exchange(m_sent, {}))
            texts.push_back(Hex(telegram.tpdu));
        return texts;
    }
    /// The answer to a connectionless request; "" for none.
    std::string Ask(std::string_view digits) {
        Receive(FromHex(digits));
        const auto sent = Sent();
        EXPECT_LE(sent.size(), 1u);
        return sent.empty() ? "" : sent.front();
    }
    void Connect() {
        Receive({0x80});
        m_sequence = 0;
        EXPECT_THAT(Sent(), testing::IsEmpty());
    }
    /// The answer over the connection, as unnumbered data; acknowledged.
    std::string AskConnected(std::string_view digits) {
        auto request = FromHex(digits);
        request[0] = static_cast<std::uint8_t>(request[0] | 0x40 | m_sequence << 2);
        Receive(request);
        auto sent = Sent();
        EXPECT_FALSE(sent.empty());
        EXPECT_EQ(fmt::format("{:02x}", 0xC2 | m_sequence << 2), sent.at(0));
        m_sequence = (m_sequence + 1) % 16;
        if (sent.size() < 2)
            return "";
        auto answer = FromHex(sent[1]);
        Receive({static_cast<std::uint8_t>(0xC2 | (answer[0] & 0x3C))});
        answer[0] &= 0x03;
        return Hex(answer);
    }
    /// Unload, start loading, allocate, write, complete: all by telegrams.
    void Load(std::uint8_t object, const std::string& content) {
        const auto control = [&](std::string_view event) {
            Ask(fmt::format("03d7 {:02x} 05 1001 {}", object, event));
        };
        control("04000000000000000000");
        control("01000000000000000000");
        control(fmt::format("030b{:08x}010000 00", content.size() / 2));
        const auto address = Ask(fmt::format("03d5 {:02x} 07 1001", object)).substr(12);
        EXPECT_EQ("01fc00" + address.substr(2),
                  Ask(fmt::format("01fb {:02x} {} {}", content.size() / 2, address.substr(2), content)));
        control("02000000000000000000");
    }
    LoadState StateOf(StandardObject object) const { return m_device.Loadable(object).State(); }

    TimePoint m_now{std::chrono::seconds(1000)};
    InterfaceObjects m_objects;
    Device m_device{Identity(), m_objects};
    Management m_management{m_device, *this};
    std::vector<LData> m_sent;
    std::vector<std::string> m_events;
    std::vector<std::string> m_refused;
    std::vector<std::string> m_reasons; // of the refused, in the same order
    std::vector<DeviceChange> m_changes;
    int m_sequence = 0;
};

} // namespace KnxDevice
