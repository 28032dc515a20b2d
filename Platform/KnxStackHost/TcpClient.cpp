#include "KnxStackHost/TcpClient.h"

#include "KnxStackHost/ExceptionText.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/post.hpp>
#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <utility>

namespace KnxStackHost {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

namespace {

constexpr unsigned kReadsPerTurn = 16; // before timers and other sockets get their turn

log4cplus::Logger& Log() {
    static log4cplus::Logger logger = log4cplus::Logger::getInstance("KnxStack.Host.Link");
    return logger;
}

tcp::endpoint ToAsio(const KnxIp::Endpoint& endpoint) {
    return {asio::ip::address_v4(endpoint.address), endpoint.port};
}

} // namespace

struct TcpClient::Stream {
    explicit Stream(asio::io_context& context) : socket(context) {}

    tcp::socket socket;
    bool isOpen = false;
    std::vector<std::uint8_t> unsent;
};

TcpClient::TcpClient(asio::io_context& context, Events events)
    : m_context(context), m_events(std::move(events)) {}

TcpClient::~TcpClient() = default;

void TcpClient::Open(const KnxIp::Endpoint& server, std::uint32_t localAddress) {
    Close();
    const auto stream = std::make_shared<Stream>(m_context);
    m_stream = stream;
    error_code error;
    stream->socket.open(tcp::v4(), error);
    if (!error && localAddress != 0)
        stream->socket.bind(ToAsio({localAddress, 0}), error);
    if (error) {
        Fail(stream);
        return;
    }
    stream->socket.async_connect(ToAsio(server), [this, stream](const error_code& failure) {
        if (m_stream != stream)
            return;
        if (failure)
            Fail(stream);
        else
            Connected(stream);
    });
}

void TcpClient::Connected(const StreamPointer& stream) {
    error_code ignored;
    stream->socket.set_option(tcp::no_delay(true), ignored);
    stream->socket.non_blocking(true, ignored);
    stream->isOpen = true;
    Tell(m_events.opened);
    WaitForOctets(stream);
}

void TcpClient::WaitForOctets(const StreamPointer& stream) {
    if (m_stream != stream)
        return;
    stream->socket.async_wait(tcp::socket::wait_read, [this, stream](const error_code& error) {
        if (error)
            return;
        ReceiveWaiting(stream);
        WaitForOctets(stream);
    });
}

void TcpClient::ReceiveWaiting(const StreamPointer& stream) {
    for (unsigned i = 0; i < kReadsPerTurn && m_stream == stream; ++i) {
        error_code error;
        const auto size = stream->socket.read_some(asio::buffer(m_buffer), error);
        if (error == asio::error::would_block || error == asio::error::interrupted)
            return;
        if (error) {
            Fail(stream);
            return;
        }
        Tell([&] { m_events.octets({m_buffer.data(), size}); });
    }
}

void TcpClient::Send(KnxFrames::Octets octets) {
    const StreamPointer stream = m_stream;
    if (stream == nullptr || !stream->isOpen)
        return;
    if (stream->unsent.empty()) {
        error_code error;
        const auto sent = stream->socket.write_some(asio::buffer(octets.data(), octets.size()), error);
        if (!error)
            octets = octets.subspan(sent);
        // Any other error than a lack of room is told by the next read.
        if (octets.empty())
            return;
        WaitForRoom(stream);
    }
    if (stream->unsent.size() + octets.size() > kMostUnsent)
        Fail(stream);
    else
        stream->unsent.insert(stream->unsent.end(), octets.begin(), octets.end());
}

void TcpClient::WaitForRoom(const StreamPointer& stream) {
    stream->socket.async_wait(tcp::socket::wait_write, [this, stream](const error_code& error) {
        if (!error && m_stream == stream)
            SendWaiting(stream);
    });
}

void TcpClient::SendWaiting(const StreamPointer& stream) {
    error_code error;
    auto& unsent = stream->unsent;
    const auto sent = stream->socket.write_some(asio::buffer(unsent), error);
    if (error && error != asio::error::would_block && error != asio::error::interrupted)
        return; // told by the next read
    if (!error)
        unsent.erase(unsent.begin(), unsent.begin() + static_cast<std::ptrdiff_t>(sent));
    if (!unsent.empty())
        WaitForRoom(stream);
}

void TcpClient::Close() {
    const StreamPointer stream = std::exchange(m_stream, nullptr);
    if (stream == nullptr)
        return;
    stream->isOpen = false;
    error_code ignored;
    stream->socket.close(ignored);
}

/// The stream is over. Told later: this may be inside an operation.
void TcpClient::Fail(const StreamPointer& stream) {
    stream->isOpen = false;
    error_code ignored;
    stream->socket.close(ignored);
    asio::post(m_context, [this, stream] {
        if (m_stream != stream)
            return; // closed meanwhile, or another one is wanted
        m_stream = nullptr;
        Tell(m_events.closed);
    });
}

template <class Call>
void TcpClient::Tell(Call call) {
    try {
        call();
    } catch (...) {
        const auto verdict = m_thrown.Count(0, "thrown");
        if (verdict != Notices::Verdict::Silent)
            LOG4CPLUS_ERROR(Log(), fmt::format("what came from the KNX/IP interface over TCP could not be "
                                               "handled: {}{}",
                                               CurrentExceptionText(), Suffix(verdict)));
    }
}

} // namespace KnxStackHost
