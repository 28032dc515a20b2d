#include "KnxStackHost/Links/TcpClient.h"

#include "KnxStackHost/ExceptionText.h"

#include <boost/asio/post.hpp>
#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <utility>

namespace KnxStackHost {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

namespace {

log4cplus::Logger& Log() {
    static log4cplus::Logger logger = log4cplus::Logger::getInstance("KnxStack.Host.Link");
    return logger;
}

} // namespace

TcpClient::TcpClient(asio::io_context& context, Events events)
    : m_context(context), m_events(std::move(events)) {}

TcpClient::~TcpClient() = default;

void TcpClient::Open(const KnxIp::Endpoint& server, std::uint32_t localAddress) {
    Close();
    const auto stream = std::make_shared<TcpStream>(tcp::socket(m_context), kMostUnsent);
    m_stream = stream;
    error_code error;
    stream->Socket().open(tcp::v4(), error);
    if (!error && localAddress != 0)
        stream->Socket().bind(ToTcp({localAddress, 0}), error);
    if (error) {
        Fail(stream);
        return;
    }
    stream->Socket().async_connect(ToTcp(server), [this, stream](const error_code& failure) {
        if (m_stream != stream)
            return;
        if (failure)
            Fail(stream);
        else
            Connected(stream);
    });
}

void TcpClient::Connected(const StreamPointer& stream) {
    stream->Start([this](KnxFrames::Octets octets) { Tell([&] { m_events.octets(octets); }); },
                  [this] { Fail(m_stream); });
    Tell(m_events.opened);
}

void TcpClient::Send(KnxFrames::Octets octets) {
    const StreamPointer stream = m_stream;
    if (stream != nullptr && !stream->Send(octets))
        Fail(stream);
}

void TcpClient::Close() {
    if (const auto stream = std::exchange(m_stream, nullptr))
        stream->Close();
}

/// The stream is over. Told later: this may be inside an operation.
void TcpClient::Fail(const StreamPointer& stream) {
    stream->Close();
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
