#include "KnxStackHost/Links/TcpStream.h"

#include <boost/asio/buffer.hpp>

#include <array>
#include <utility>

namespace KnxStackHost {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

namespace {

constexpr unsigned kReadsPerTurn = 16; // before timers and other sockets get their turn

} // namespace

TcpStream::TcpStream(tcp::socket socket, std::size_t mostUnsent)
    : m_socket(std::move(socket)), m_mostUnsent(mostUnsent) {}

void TcpStream::Start(OnOctets octets, OnEnd ended) {
    m_octets = std::move(octets);
    m_ended = std::move(ended);
    error_code ignored;
    m_socket.set_option(tcp::no_delay(true), ignored);
    m_socket.non_blocking(true, ignored);
    m_isOpen = true;
    WaitForOctets();
}

void TcpStream::WaitForOctets() {
    m_socket.async_wait(tcp::socket::wait_read, [this, self = shared_from_this()](const error_code& error) {
        if (error || !m_isOpen)
            return;
        ReceiveWaiting();
        if (m_isOpen)
            WaitForOctets();
    });
}

void TcpStream::ReceiveWaiting() {
    std::array<std::uint8_t, 4096> buffer{};
    for (unsigned i = 0; i < kReadsPerTurn && m_isOpen; ++i) {
        error_code error;
        const auto size = m_socket.read_some(asio::buffer(buffer), error);
        if (error == asio::error::would_block || error == asio::error::interrupted)
            return;
        if (error) {
            Close();
            m_ended();
            return;
        }
        m_octets({buffer.data(), size});
    }
}

bool TcpStream::Send(KnxFrames::Octets octets) {
    if (!m_isOpen)
        return true;
    if (m_unsent.empty()) {
        error_code error;
        const auto sent = m_socket.write_some(asio::buffer(octets.data(), octets.size()), error);
        if (!error)
            octets = octets.subspan(sent);
        // Any other error than a lack of room is told by the next read.
        if (octets.empty())
            return true;
        WaitForRoom();
    }
    if (m_unsent.size() + octets.size() > m_mostUnsent)
        return false;
    m_unsent.insert(m_unsent.end(), octets.begin(), octets.end());
    return true;
}

void TcpStream::WaitForRoom() {
    m_socket.async_wait(tcp::socket::wait_write, [this, self = shared_from_this()](const error_code& error) {
        if (!error && m_isOpen)
            SendWaiting();
    });
}

void TcpStream::SendWaiting() {
    error_code error;
    const auto sent = m_socket.write_some(asio::buffer(m_unsent), error);
    if (error && error != asio::error::would_block && error != asio::error::interrupted)
        return; // told by the next read
    if (!error)
        m_unsent.erase(m_unsent.begin(), m_unsent.begin() + static_cast<std::ptrdiff_t>(sent));
    if (m_unsent.empty())
        m_unsent.shrink_to_fit(); // it was a burst
    else
        WaitForRoom();
}

void TcpStream::Close() {
    m_isOpen = false;
    error_code ignored;
    m_socket.close(ignored);
}

} // namespace KnxStackHost
