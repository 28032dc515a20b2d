#include "FakeDeviceStack.h"

#include <boost/json.hpp>
#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace {

constexpr auto kLimit = 10s;

bool IsReadable(int fd, std::chrono::milliseconds wait) {
    pollfd entry{fd, POLLIN, 0};
    return ::poll(&entry, 1, static_cast<int>(wait.count())) > 0;
}

} // namespace

std::string ReadMember(std::string_view line, std::string_view name) {
    const auto value = boost::json::parse(line);
    const auto* member = value.as_object().if_contains(name);
    return member != nullptr ? boost::json::serialize(*member) : std::string();
}

FakeConnection::FakeConnection(FakeConnection&& other) noexcept
    : m_fd(std::exchange(other.m_fd, -1)), m_received(std::move(other.m_received)), m_ended(other.m_ended) {}

FakeConnection& FakeConnection::operator=(FakeConnection&& other) noexcept {
    std::swap(m_fd, other.m_fd);
    std::swap(m_received, other.m_received);
    std::swap(m_ended, other.m_ended);
    return *this;
}

bool FakeConnection::Fill(std::chrono::milliseconds wait) {
    if (m_ended || !IsReadable(m_fd, wait))
        return false;
    char buffer[65536];
    const auto got = ::recv(m_fd, buffer, sizeof buffer, 0);
    if (got <= 0)
        m_ended = true;
    else
        m_received.append(buffer, static_cast<std::size_t>(got));
    return got > 0;
}

std::string FakeConnection::ReadLine() {
    auto end = m_received.find('\n');
    while (end == std::string::npos) {
        const auto searched = m_received.size();
        if (!Fill(kLimit))
            throw std::runtime_error("no line of the client came");
        end = m_received.find('\n', searched);
    }
    auto line = m_received.substr(0, end);
    m_received.erase(0, end + 1);
    return line;
}

std::string FakeConnection::ReadRequest(std::string_view method) {
    const auto line = ReadLine();
    if (ReadMember(line, "method") != fmt::format("\"{}\"", method))
        throw std::runtime_error(fmt::format("expected {}, got {}", method, line));
    return ReadMember(line, "id");
}

bool FakeConnection::IsClosedWithin(std::chrono::milliseconds wait) {
    Fill(wait);
    if (!m_received.empty())
        throw std::runtime_error("expected the end, got " + m_received);
    return m_ended;
}

bool FakeConnection::IsSilentFor(std::chrono::milliseconds wait) {
    return m_received.empty() && !Fill(wait);
}

void FakeConnection::Send(std::string_view bytes) {
    while (!bytes.empty()) {
        const auto sent = ::send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0)
            throw std::runtime_error("the client does not read");
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
}

void FakeConnection::Reply(std::string_view id, std::string_view result) {
    SendLine(fmt::format(R"({{"jsonrpc":"2.0","id":{},"result":{}}})", id, result));
}

void FakeConnection::ReplyError(std::string_view id, int code, std::string_view message) {
    SendLine(fmt::format(R"({{"jsonrpc":"2.0","id":{},"error":{{"code":{},"message":"{}"}}}})", id, code,
                         message));
}

void FakeConnection::AcceptRegistration(std::string_view server, unsigned change) {
    Reply(ReadRequest("register"),
          fmt::format(R"({{"application":"a::field::1","server":"{}","change":{}}})", server, change));
}

void FakeConnection::SendValueChanged(unsigned id, std::string_view value, unsigned change,
                                      std::string_view origin) {
    SendLine(fmt::format(
        R"({{"jsonrpc":"2.0","method":"valueChanged","params":{{"id":{0},"urn":"urn:oxn:dp:house:p{0}",)"
        R"("value":"{1}","origin":"{3}","time":"2024-05-01T10:00:00.123Z","change":{2}}}}})",
        id, value, change, origin));
}

void FakeConnection::Close() {
    if (m_fd >= 0)
        ::close(std::exchange(m_fd, -1));
}

FakeDeviceStack::FakeDeviceStack(Start start) {
    ::setenv("DEVICESTACK_SOCKET", m_path.c_str(), 1);
    if (start == Start::Listening)
        Listen();
}

FakeDeviceStack::~FakeDeviceStack() {
    StopListening();
}

void FakeDeviceStack::Listen() {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, m_path.c_str(), sizeof address.sun_path - 1);
    m_fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::bind(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(m_fd, 16) != 0)
        throw std::runtime_error("cannot listen");
}

void FakeDeviceStack::StopListening() {
    if (m_fd < 0)
        return;
    ::close(std::exchange(m_fd, -1));
    std::filesystem::remove(m_path);
}

bool FakeDeviceStack::NobodyConnectsWithin(std::chrono::milliseconds wait) const {
    return !IsReadable(m_fd, wait);
}

FakeConnection FakeDeviceStack::Accept() {
    if (!IsReadable(m_fd, kLimit))
        throw std::runtime_error("no client came");
    return FakeConnection(::accept4(m_fd, nullptr, nullptr, SOCK_CLOEXEC));
}
