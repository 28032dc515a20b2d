// What the device stack knows of one connection.
#pragma once

#include "DeviceStackServer/DataPointStore.h"
#include "DeviceStackServer/StartWindow.h"

#include <cstdint>
#include <map>
#include <set>
#include <string>

namespace DeviceStackServer {

/// Numbers connections from 1; never used twice.
using Connection = std::uint64_t;

struct Client {
    Connection connection = 0;
    long pid = 0;      ///< of the peer process; 0 = not known
    SharedText origin; ///< the identity, or "connection#N"

    bool registered = false;
    std::string name; ///< with `registered`; as are the next two
    std::string type;
    std::string instance;
    bool events = false; ///< wants value and configuration changes and application events
    bool field = false;  ///< answers readValue and writeValue

    bool startWindow = false;     ///< a field application that announces "configurationLoaded"
    StartWindow window;           ///< always open unless `startWindow`
    std::set<std::uint32_t> held; ///< data points that changed while the window was closed

    std::size_t openQuestions = 0; ///< its requests that owners were asked for and have not answered
    bool paused = false;           ///< too many of them: no more of its messages are taken

    /// What other applications are told as the sender of its events.
    const std::string& SenderName() const { return registered ? name : *origin; }
};

/// All connections, in the order in which they came. Not synchronised.
class ClientTable {
public:
    Client& Add(Connection connection, long pid);
    void Remove(Connection connection) { m_clients.erase(connection); }

    Client* Find(Connection connection);

    /// The connection registered as `identity`; null when there is none.
    Client* FindIdentity(const std::string& identity);

    std::map<Connection, Client>& All() { return m_clients; }

private:
    std::map<Connection, Client> m_clients;
};

/// "name::type::instance".
std::string Identity(const std::string& name, const std::string& type, const std::string& instance);

} // namespace DeviceStackServer
