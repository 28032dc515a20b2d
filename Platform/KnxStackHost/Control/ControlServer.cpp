#include "KnxStackHost/Control/ControlServer.h"

#include "KnxStackHost/Control/ControlCommands.h"
#include "KnxStackHost/ExceptionText.h"
#include "KnxStackHost/Links/LinkThread.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>
#include <fmt/format.h>
#include <log4cplus/loggingmacros.h>

#include <algorithm>
#include <deque>
#include <string_view>
#include <utility>

namespace KnxStackHost {

namespace asio = boost::asio;
using boost::system::error_code;
using Socket = DaemonSupport::LocalListener::Socket;

namespace {

constexpr const char* kLogger = "KnxStack.Host.Control";

log4cplus::Logger& Log() {
    static log4cplus::Logger logger = log4cplus::Logger::getInstance(kLogger);
    return logger;
}

} // namespace

class ControlServer::Client : public std::enable_shared_from_this<Client> {
public:
    Client(Socket socket, ControlServer& server) : m_socket(std::move(socket)), m_server(server) {}

    bool Watches() const { return m_watches; }

    void Read() {
        asio::async_read_until(m_socket, asio::dynamic_buffer(m_input, kLongestRequest), '\n',
                               [self = shared_from_this()](const error_code& error, std::size_t size) {
                                   self->OnRead(error, size);
                               });
    }

    void Send(std::string line) {
        if (m_closed || line.empty())
            return;
        m_unread += line.size();
        if (m_unread > kMostUnread) {
            LOG4CPLUS_WARN(Log(), fmt::format("a control client does not read what it asked for, {} bytes; "
                                              "its connection is ended",
                                              m_unread));
            End();
            return;
        }
        m_output.push_back(std::move(line));
        if (m_output.size() == 1)
            Write();
    }

    void Close() {
        m_closed = true;
        error_code ignored;
        m_socket.close(ignored);
    }

private:
    void OnRead(const error_code& error, std::size_t size) {
        if (m_closed)
            return;
        if (error == asio::error::not_found) {
            Send(RefusalMessage(fmt::format("a request has at most {} bytes", kLongestRequest)));
            m_inputEnded = true;
            m_watches = false;
            EndIfDone();
            return;
        }
        if (error) {
            OnEndOfInput(error);
            return;
        }
        try {
            Send(AnswerControl(std::string_view(m_input).substr(0, size - 1), m_server.m_target, m_watches));
        } catch (...) {
            LOG4CPLUS_ERROR(Log(), fmt::format("a request of a control client was not carried out: {}",
                                               CurrentExceptionText()));
            End();
        }
        m_input.erase(0, size);
        if (!m_closed)
            Read();
    }

    /// A client that only closes its sending side still gets what it asked for.
    void OnEndOfInput(const error_code& error) {
        if (error != asio::error::eof) {
            End();
            return;
        }
        m_inputEnded = true;
        m_socket.async_wait(Socket::wait_error, [self = shared_from_this()](const error_code& cancelled) {
            if (!cancelled && !self->m_closed)
                self->End();
        });
        EndIfDone();
    }

    void Write() {
        asio::async_write(m_socket, asio::buffer(m_output.front()),
                          [self = shared_from_this()](const error_code& error, std::size_t) {
                              if (self->m_closed)
                                  return;
                              if (error)
                                  self->End();
                              else
                                  self->OnWritten();
                          });
    }

    void OnWritten() {
        m_unread -= m_output.front().size();
        m_output.pop_front();
        if (!m_output.empty())
            Write();
        EndIfDone();
    }

    void EndIfDone() {
        if (!m_closed && m_inputEnded && !m_watches && m_output.empty())
            End();
    }

    void End() {
        Close();
        m_server.Forget(*this);
    }

    Socket m_socket;
    ControlServer& m_server;
    std::string m_input;
    std::deque<std::string> m_output; // the first one is being written
    std::size_t m_unread = 0;         // bytes of m_output
    bool m_watches = false;
    bool m_inputEnded = false;
    bool m_closed = false;
};

ControlServer::ControlServer(asio::io_context& context, const ControlSettings& settings,
                             ControlTarget& target)
    : m_target(target), m_listener(context, kLogger) {
    if (const auto fault = m_listener.Open(settings.socket, settings.socketMode); !fault.empty())
        throw LinkError(fmt::format("/control/socket: {}", fault));
}

ControlServer::~ControlServer() = default;

void ControlServer::Start() {
    m_listener.Accept([this](Socket socket) { Take(std::move(socket)); });
    LOG4CPLUS_INFO(Log(), fmt::format("listening for control clients on {}", m_listener.Path()));
}

void ControlServer::Stop() {
    m_listener.Close();
    for (const auto& client : m_clients)
        client->Close();
    m_clients.clear();
}

bool ControlServer::IsWatched() const {
    return std::any_of(m_clients.begin(), m_clients.end(),
                       [](const auto& client) { return client->Watches(); });
}

void ControlServer::Publish(const std::string& message) {
    const auto clients = m_clients; // sending may end one
    for (const auto& client : clients)
        if (client->Watches())
            client->Send(message);
}

void ControlServer::Take(Socket socket) {
    error_code ignored;
    socket.non_blocking(true, ignored);
    if (m_clients.size() >= kMostClients) {
        const auto line = RefusalMessage(fmt::format("there are {} control clients already", kMostClients));
        socket.write_some(asio::buffer(line), ignored);
        if (m_turnedAway.Take(std::chrono::steady_clock::now()))
            LOG4CPLUS_WARN(
                Log(), fmt::format("a control client was turned away: there are {} already", kMostClients));
        return;
    }
    m_clients.push_back(std::make_shared<Client>(std::move(socket), *this));
    m_clients.back()->Read();
}

void ControlServer::Forget(const Client& client) {
    std::erase_if(m_clients, [&client](const auto& each) { return each.get() == &client; });
}

} // namespace KnxStackHost
