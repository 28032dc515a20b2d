#include "Downloader.h"

#include <fmt/format.h>

#include <algorithm>

namespace TestSupport {

using KnxFrames::Tpdu;
using KnxFrames::TpduKind;

namespace {

using Bytes = std::vector<std::uint8_t>;

// Application control information (KNX Standard 3/3/7), written out here rather than taken from what is
// tested.
constexpr std::uint16_t kDeviceDescriptorRead = 0x300;
constexpr std::uint16_t kDeviceDescriptorResponse = 0x340;
constexpr std::uint16_t kAuthorizeRequest = 0x3D1;
constexpr std::uint16_t kAuthorizeResponse = 0x3D2;
constexpr std::uint16_t kPropertyRead = 0x3D5;
constexpr std::uint16_t kPropertyResponse = 0x3D6;
constexpr std::uint16_t kPropertyWrite = 0x3D7;
constexpr std::uint16_t kMemoryExtendedWrite = 0x1FB;
constexpr std::uint16_t kMemoryExtendedWriteResponse = 0x1FC;
constexpr std::uint16_t kRestart = 0x380;

constexpr std::uint8_t kLoadState = 5;
constexpr std::uint8_t kTableReference = 7;
constexpr std::uint8_t kMemoryControlBlock = 27;
constexpr std::size_t kBlock =
    12; // octets per memory write: what fits into a standard frame, and a little less

std::uint16_t ChecksumOf(const Bytes& bytes) {
    std::uint16_t crc = 0xFFFF;
    for (const unsigned byte : bytes)
        for (unsigned bit = 0x80; bit != 0; bit >>= 1) {
            const bool carry = ((crc & 0x8000) != 0) != ((byte & bit) != 0);
            crc = static_cast<std::uint16_t>(crc << 1 ^ (carry ? 0x1021 : 0));
        }
    return crc;
}

} // namespace

bool Downloader::Run(const std::vector<DownloadStep>& steps) {
    try {
        Play(steps);
        return true;
    } catch (const BrokenOff&) {
        m_fault = "broken off";
    } catch (const Failed&) {
        // m_fault says it
    }
    return false;
}

void Downloader::Play(const std::vector<DownloadStep>& steps) {
    Send({0x80}); // T_Connect
    if (Ask(kDeviceDescriptorRead, {}, kDeviceDescriptorResponse) != Bytes{0x57, 0xB0})
        Fail("the device is no KNX IP device of System B");
    if (Ask(kAuthorizeRequest, {0, 0xFF, 0xFF, 0xFF, 0xFF}, kAuthorizeResponse).at(0) > 2)
        Fail("the device may not be loaded without a key");
    for (const auto& step : steps)
        if (step.kind == DownloadStep::Kind::Load)
            Control(step.object, {4}, 0);
    for (const auto& step : steps) {
        if (step.kind == DownloadStep::Kind::Load)
            Load(step);
        else
            WriteProperty(step.object, step.property, step.octets);
    }
    SendNumbered(kRestart, {});
}

void Downloader::Load(const DownloadStep& step) {
    const auto size = step.octets.size();
    Control(step.object, {1}, 2);
    Control(step.object,
            {3, 0x0B, static_cast<std::uint8_t>(size >> 24), static_cast<std::uint8_t>(size >> 16),
             static_cast<std::uint8_t>(size >> 8), static_cast<std::uint8_t>(size), 1, 0},
            2);
    const auto reference = ReadProperty(step.object, kTableReference);
    const auto address = static_cast<std::uint32_t>(reference.at(0) << 24 | reference.at(1) << 16 |
                                                    reference.at(2) << 8 | reference.at(3));
    for (std::size_t at = 0; at < size; at += kBlock)
        WriteMemory(address + static_cast<std::uint32_t>(at),
                    Bytes(step.octets.begin() + static_cast<std::ptrdiff_t>(at),
                          step.octets.begin() + static_cast<std::ptrdiff_t>(std::min(at + kBlock, size))));
    Control(step.object, {2}, 1);
    const auto block = ReadProperty(step.object, kMemoryControlBlock);
    const auto checksum = ChecksumOf(step.octets);
    if (block.at(6) != checksum >> 8 || block.at(7) != (checksum & 0xFF))
        Fail(fmt::format("object {}: the checksum of the memory is wrong", step.object));
}

void Downloader::WriteMemory(std::uint32_t address, const Bytes& octets) {
    Bytes data{static_cast<std::uint8_t>(octets.size()), static_cast<std::uint8_t>(address >> 16),
               static_cast<std::uint8_t>(address >> 8), static_cast<std::uint8_t>(address)};
    data.insert(data.end(), octets.begin(), octets.end());
    if (Ask(kMemoryExtendedWrite, data, kMemoryExtendedWriteResponse).at(0) != 0)
        Fail(fmt::format("memory at {:06x} was not written", address));
}

void Downloader::Control(std::uint8_t object, const Bytes& event, std::uint8_t expectedState) {
    Bytes padded = event;
    padded.resize(10);
    WriteProperty(object, kLoadState, padded);
    if (const auto state = ReadProperty(object, kLoadState).at(0); state != expectedState)
        Fail(fmt::format("object {} is in load state {} after event {}, not in {}", object, state, event[0],
                         expectedState));
}

Downloader::Bytes Downloader::ReadProperty(std::uint8_t object, std::uint8_t property) {
    auto answer = Ask(kPropertyRead, {object, property, 0x10, 0x01}, kPropertyResponse);
    if (answer.size() < 5 || answer[2] >> 4 == 0)
        Fail(fmt::format("property {} of object {} cannot be read", property, object));
    answer.erase(answer.begin(), answer.begin() + 4);
    return answer;
}

void Downloader::WriteProperty(std::uint8_t object, std::uint8_t property, const Bytes& octets) {
    Bytes data{object, property, 0x10, 0x01};
    data.insert(data.end(), octets.begin(), octets.end());
    if (Ask(kPropertyWrite, data, kPropertyResponse).at(2) >> 4 == 0)
        Fail(fmt::format("property {} of object {} cannot be written", property, object));
}

Downloader::Bytes Downloader::Ask(std::uint16_t apci, const Bytes& data, std::uint16_t answer) {
    SendNumbered(apci, data);
    const auto received = m_channel.Receive();
    if (!received || KnxFrames::ClassifyTpdu(*received, false, 0) != TpduKind::DataConnected)
        Fail(fmt::format("no answer to {:03x}", apci));
    if (KnxFrames::TpduSequence(*received) != m_receiveSequence)
        Fail("an answer has the wrong sequence number");
    Send({static_cast<std::uint8_t>(0xC2 | m_receiveSequence << 2)});
    m_receiveSequence = (m_receiveSequence + 1) % 16;
    if (KnxFrames::Apci(*received) != answer)
        Fail(fmt::format("{:03x} was answered with {:03x}", apci, KnxFrames::Apci(*received)));
    return Bytes(received->View().begin() + 2, received->View().end());
}

void Downloader::SendNumbered(std::uint16_t apci, const Bytes& data) {
    Tpdu tpdu{static_cast<std::uint8_t>(0x40 | m_sendSequence << 2 | apci >> 8),
              static_cast<std::uint8_t>(apci)};
    tpdu.Append(KnxFrames::Octets(data));
    Send(tpdu);
    const auto received = m_channel.Receive();
    if (!received || KnxFrames::ClassifyTpdu(*received, false, 0) != TpduKind::Ack ||
        KnxFrames::TpduSequence(*received) != m_sendSequence)
        Fail(fmt::format("{:03x} was not acknowledged", apci));
    m_sendSequence = (m_sendSequence + 1) % 16;
}

void Downloader::Send(const Tpdu& tpdu) {
    if (m_sent == m_most)
        throw BrokenOff();
    ++m_sent;
    m_channel.Send(tpdu);
}

void Downloader::Fail(const std::string& fault) {
    m_fault = fault;
    throw Failed();
}

} // namespace TestSupport
