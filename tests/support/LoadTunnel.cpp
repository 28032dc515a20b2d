#include "LoadTunnel.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace TunnelLoad {

namespace {

constexpr std::uint16_t kConnectResponse = 0x0206;
constexpr std::uint16_t kDisconnectRequest = 0x0209;
constexpr std::uint16_t kTunnellingRequest = 0x0420;
constexpr std::uint16_t kTunnellingAck = 0x0421;
constexpr std::uint8_t kLDataInd = 0x29;
constexpr std::uint8_t kLDataCon = 0x2E;
constexpr std::size_t kTelegramSize = 25; // a TUNNELLING_REQUEST with a group write of four octets
constexpr std::size_t kShortestTelegram = 21;
constexpr std::size_t kCemi = 10; // where its cEMI frame begins
constexpr std::uint8_t kConfirmError = 0x01;

std::uint16_t Read16(Octets octets, std::size_t at) {
    return static_cast<std::uint16_t>(octets[at] << 8 | octets[at + 1]);
}

std::uint32_t Read32(Octets octets, std::size_t at) {
    return static_cast<std::uint32_t>(Read16(octets, at)) << 16 | Read16(octets, at + 2);
}

void Write16(std::span<std::uint8_t> octets, std::size_t at, std::uint32_t value) {
    octets[at] = static_cast<std::uint8_t>(value >> 8);
    octets[at + 1] = static_cast<std::uint8_t>(value);
}

std::string AddressText(std::uint16_t raw) {
    return std::to_string(raw >> 12) + "." + std::to_string(raw >> 8 & 0xF) + "." +
           std::to_string(raw & 0xFF);
}

/// A request about the connection whose answer goes to where it came from: HPAIs of zeros.
constexpr std::array<std::uint8_t, 26> kConnectRequest = {6, 0x10, 2, 5, 0, 26, 8, 1, 0, 0, 0, 0, 0,
                                                          0, 8,    1, 0, 0, 0,  0, 0, 0, 4, 4, 2, 0};

} // namespace

void Fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

Tunnel::Tunnel(const Settings& settings, std::optional<unsigned> writer, milliseconds pause)
    : m_firstGroup(settings.firstGroup), m_writer(writer), m_pause(pause),
      m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in server{};
    server.sin_family = AF_INET;
    server.sin_port = htons(settings.port);
    server.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const timeval patience{20, 0};
    if (m_socket < 0 || connect(m_socket, reinterpret_cast<const sockaddr*>(&server), sizeof server) != 0 ||
        setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience) != 0)
        Fail("UDP socket");
    Send(kConnectRequest);
    std::array<std::uint8_t, 64> answer{};
    const auto size = recv(m_socket, answer.data(), answer.size(), 0);
    if (size < 0)
        Fail("no answer to the connect request");
    if (size < 20 || Read16(answer, 2) != kConnectResponse || answer[7] != 0)
        throw std::runtime_error("the server refused a tunnel");
    m_channel = answer[6];
    m_address = Read16(answer, 18);
    if (fcntl(m_socket, F_SETFL, O_NONBLOCK) != 0)
        Fail("UDP socket");
}

Tunnel::~Tunnel() {
    const std::array<std::uint8_t, 16> request = {6, 0x10, 2, 9, 0, 16, m_channel, 0, 8, 1, 0, 0, 0, 0, 0, 0};
    send(m_socket, request.data(), request.size(), 0);
    close(m_socket);
}

void Tunnel::Send(Octets datagram) const {
    if (send(m_socket, datagram.data(), datagram.size(), 0) < 0)
        Fail("send");
}

void Tunnel::Acknowledge(std::uint8_t sequence) const {
    const std::array<std::uint8_t, 10> ack = {6, 0x10, 4, 0x21, 0, 10, 4, m_channel, sequence, 0};
    Send(ack);
}

void Tunnel::WriteNext(TimePoint now) {
    std::array<std::uint8_t, kTelegramSize> request = {
        6, 0x10, 4, 0x20, 0, kTelegramSize, 4, m_channel, m_sequence, 0, 0x11, 0, 0xBC, 0xE0, 0,
        0, 0,    0, 5,    0, 0x80};
    ++m_number;
    Write16(request, kCemi + 6, m_firstGroup + *m_writer);
    Write16(request, kCemi + 11, m_number >> 16);
    Write16(request, kCemi + 13, m_number);
    m_ackMissing = true;
    m_conMissing = true;
    m_start = now;
    Send(request);
}

bool Tunnel::OnDatagram(TimePoint now, Octets datagram) {
    const auto service = datagram.size() < 8 ? std::uint16_t{0} : Read16(datagram, 2);
    if (service == kTunnellingAck && datagram.size() == 10)
        return OnAck(now, datagram);
    if (service == kTunnellingRequest && datagram.size() > kCemi && datagram[7] == m_channel)
        return OnRequest(now, datagram);
    if (service == kDisconnectRequest && datagram[6] == m_channel)
        m_result.lost = true;
    else
        ++m_result.strange;
    return false;
}

bool Tunnel::OnAck(TimePoint now, Octets datagram) {
    if (!m_ackMissing || datagram[7] != m_channel || datagram[8] != m_sequence) {
        ++m_result.strange;
        return false;
    }
    m_ackMissing = false;
    ++m_sequence;
    acknowledged.Add(now - m_start);
    m_result.refused += datagram[9] != 0 ? 1 : 0;
    return !m_conMissing;
}

bool Tunnel::OnRequest(TimePoint now, Octets datagram) {
    const auto sequence = datagram[8];
    if (sequence == static_cast<std::uint8_t>(m_expected - 1)) {
        ++m_result.repeated;
        Acknowledge(sequence);
        return false;
    }
    if (sequence != m_expected) {
        ++m_result.strange;
        return false;
    }
    ++m_expected;
    if (m_pause == milliseconds(0))
        Acknowledge(sequence);
    else
        m_late.push_back({now + m_pause, sequence});
    const auto code = datagram[kCemi];
    if (datagram.size() == kTelegramSize && code == kLDataCon)
        return OnConfirmation(now, datagram.subspan(kCemi));
    if (datagram.size() >= kShortestTelegram && code == kLDataInd)
        OnIndication(datagram.subspan(kCemi));
    else
        ++m_result.strange;
    return false;
}

/// The telegram under way: from our address to our group with our number.
bool Tunnel::IsOwn(Octets telegram) const {
    return m_writer && Read16(telegram, 4) == m_address && Read16(telegram, 6) == m_firstGroup + *m_writer &&
           Read32(telegram, 11) == m_number;
}

bool Tunnel::OnConfirmation(TimePoint now, Octets telegram) {
    if (!m_conMissing || !IsOwn(telegram)) {
        ++m_result.strange;
        return false;
    }
    m_conMissing = false;
    confirmed.Add(now - m_start);
    m_result.refused += (telegram[2] & kConfirmError) != 0 ? 1 : 0;
    return !m_ackMissing;
}

void Tunnel::OnIndication(Octets telegram) {
    const auto writer = static_cast<std::size_t>(Read16(telegram, 6)) - m_firstGroup;
    if (writer >= m_writers.size()) {
        ++m_result.others;
        return;
    }
    if (writer == m_writer || telegram.size() != kTelegramSize - kCemi ||
        Read16(telegram, 4) != m_writers[writer]) {
        ++m_result.strange;
        return;
    }
    const auto number = Read32(telegram, 11);
    ++m_result.heard;
    if (number <= m_last[writer])
        ++m_result.disorder;
    m_last[writer] = std::max(number, m_last[writer]);
}

void Tunnel::OnTime(TimePoint now) {
    while (!m_late.empty() && (m_late.front().due <= now || m_pause == milliseconds(0))) {
        Acknowledge(m_late.front().sequence);
        m_late.pop_front();
    }
}

TunnelResult Tunnel::Finish(const std::vector<std::uint32_t>& sent) {
    std::uint64_t written = 0;
    for (std::size_t writer = 0; writer < sent.size(); ++writer)
        written += writer == m_writer ? 0 : sent[writer];
    m_result.address = AddressText(m_address);
    m_result.sent = m_number;
    m_result.missing = written - std::min(written, m_result.heard - m_result.disorder);
    m_result.unconfirmed = m_ackMissing || m_conMissing;
    return m_result;
}

} // namespace TunnelLoad
