#include "DeviceStackServer/Session.h"

#include <boost/asio/post.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

namespace DeviceStackServer {

namespace asio = boost::asio;

Session::Session(Socket socket, Connection connection, ISessionOwner& owner)
    : m_socket(std::move(socket)), m_connection(connection), m_owner(owner) {}

long Session::PeerPid() const {
    ucred credentials{};
    socklen_t size = sizeof credentials;
    const int fd = const_cast<Socket&>(m_socket).native_handle();
    return ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0 ? credentials.pid : 0;
}

void Session::Start() {
    m_socket.non_blocking(true);
    WaitToRead();
}

void Session::WaitToRead() {
    if (m_closed || m_reading || m_inputEnded || IsCongested())
        return;
    m_reading = true;
    m_socket.async_wait(Socket::wait_read, [self = shared_from_this()](boost::system::error_code error) {
        self->m_reading = false;
        if (!error && !self->m_closed)
            self->OnReadable();
    });
}

void Session::OnReadable() {
    if (IsCongested()) // since the wait began; GoOn() waits again
        return;
    std::array<char, 65536> buffer;
    const auto count = ::recv(m_socket.native_handle(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (count == 0) {
        if (TakeLines()) // which may have been left when sending broke
            OnEndOfInput();
        return;
    }
    if (count < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)
        return End("the peer is gone");
    if (count > 0) {
        m_input.Append({buffer.data(), static_cast<std::size_t>(count)});
        if (!TakeLines())
            return;
    }
    WaitToRead();
}

/// Hands out the lines that are complete. False when the session is over.
bool Session::TakeLines() {
    while (!m_closed && !IsCongested()) {
        const auto line = m_input.Next();
        if (!line)
            break;
        try {
            m_owner.OnLine(*this, *line);
        } catch (const std::exception& error) {
            // Half done, perhaps: the peer is better off with a new connection than without an answer.
            m_cutOff = true;
            End(std::string("a message of it was not carried out: ") + error.what());
        }
    }
    if (!m_closed && m_input.IsTooLong()) {
        m_owner.OnLineTooLong(*this);
        End("it sent a line that is too long");
    }
    return !m_closed;
}

bool Session::PeerIsGone() const {
    pollfd state{const_cast<Socket&>(m_socket).native_handle(), 0, 0};
    return ::poll(&state, 1, 0) > 0 && (state.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

void Session::OnEndOfInput() {
    m_inputEnded = true;
    if (PeerIsGone())
        return End("the peer has left");
    // The peer closed only its sending side and may still wait for answers.
    WaitForEnd();
    EndIfFinished();
}

/// Ends the session of a peer that sends no more and waits for nothing.
void Session::EndIfFinished() {
    if (!m_closed && m_inputEnded && m_output.empty() && !m_owner.IsWaiting(*this))
        End("the peer has finished");
}

void Session::WaitForEnd() {
    m_socket.async_wait(Socket::wait_error, [self = shared_from_this()](boost::system::error_code error) {
        if (!error && !self->m_closed)
            self->End("the peer has left");
    });
}

bool Session::DrainIfDead() {
    if (m_closed)
        return true;
    if (!PeerIsGone())
        return false;
    StopSending();
    std::array<char, 65536> buffer;
    for (;;) {
        const auto count = ::recv(m_socket.native_handle(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        m_input.Append({buffer.data(), static_cast<std::size_t>(count)});
        if (!TakeLines())
            return true;
    }
    End("the peer has left");
    return true;
}

void Session::Count(const Item& item, bool added) {
    const auto size = item.line->size();
    if (item.kind == IEnvironment::Kind::Event) {
        m_events += added ? 1 : std::size_t(-1);
        m_eventBytes += added ? size : std::size_t(0) - size;
    } else {
        m_answerBytes += added ? size : std::size_t(0) - size;
    }
}

void Session::Send(Line line, IEnvironment::Kind kind) {
    if (m_closed || m_ending || m_broken)
        return;
    m_output.push_back({std::move(line), kind});
    Count(m_output.back(), true);
    if (m_output.size() == 1)
        Flush();
    if (m_inputEnded)
        asio::post(m_socket.get_executor(), [self = shared_from_this()] { self->EndIfFinished(); });
    if (m_events <= kMaxEvents && m_eventBytes <= kMaxEventBytes)
        return;
    m_cutOff = true;
    EndSoon("it does not read what it asked to be told: " + std::to_string(m_events) + " messages, " +
            std::to_string(m_eventBytes) + " bytes");
}

/// Writes as much as the socket takes now and waits for the rest.
void Session::Flush() {
    while (!m_output.empty()) {
        std::array<iovec, 64> parts;
        std::size_t count = 0;
        for (auto item = m_output.begin(); item != m_output.end() && count < parts.size(); ++item, ++count) {
            const auto skip = count == 0 ? m_sentOfFirst : 0;
            parts[count] = {const_cast<char*>(item->line->data()) + skip, item->line->size() - skip};
        }
        msghdr message{};
        message.msg_iov = parts.data();
        message.msg_iovlen = count;
        const auto sent = ::sendmsg(m_socket.native_handle(), &message, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent >= 0)
            Drop(static_cast<std::size_t>(sent));
        else if (errno == EAGAIN || errno == EWOULDBLOCK)
            return WaitToWrite();
        else if (errno != EINTR)
            return StopSending();
    }
}

/// The peer takes no more. Its last messages are still read; the end of the input ends the session.
void Session::StopSending() {
    m_broken = true;
    m_output.clear();
    m_sentOfFirst = m_events = m_eventBytes = m_answerBytes = 0;
    if (m_inputEnded)
        EndSoon("the peer has left");
    else
        WaitToRead();
}

void Session::Drop(std::size_t sent) {
    while (sent > 0) {
        const auto rest = m_output.front().line->size() - m_sentOfFirst;
        if (sent < rest) {
            m_sentOfFirst += sent;
            return;
        }
        sent -= rest;
        Count(m_output.front(), false);
        m_output.pop_front();
        m_sentOfFirst = 0;
    }
}

void Session::WaitToWrite() {
    if (m_writing)
        return;
    m_writing = true;
    m_socket.async_wait(Socket::wait_write, [self = shared_from_this()](boost::system::error_code error) {
        self->m_writing = false;
        if (error || self->m_closed)
            return;
        self->Flush();
        self->GoOn();
    });
}

void Session::SetPaused(bool paused) {
    m_paused = paused;
    if (!paused)
        asio::post(m_socket.get_executor(), [self = shared_from_this()] { self->GoOn(); });
}

/// Takes what was left while it was congested, if it no longer is.
void Session::GoOn() {
    if (m_closed || !TakeLines())
        return;
    EndIfFinished();
    WaitToRead();
}

/// Ends the session outside of the operation that found the reason.
void Session::EndSoon(std::string reason) {
    if (m_ending)
        return;
    m_ending = true;
    asio::post(m_socket.get_executor(),
               [self = shared_from_this(), reason = std::move(reason)] { self->End(reason); });
}

void Session::End(const std::string& reason) {
    if (m_closed)
        return;
    Close();
    m_owner.OnClosed(*this, reason);
}

void Session::Close() {
    m_closed = true;
    boost::system::error_code ignored;
    m_socket.close(ignored);
}

} // namespace DeviceStackServer
