#include "DeviceStackServer/Client.h"

namespace DeviceStackServer {

Client& ClientTable::Add(Connection connection, long pid) {
    auto& client = m_clients[connection];
    client.connection = connection;
    client.pid = pid;
    client.origin = std::make_shared<const std::string>("connection#" + std::to_string(connection));
    return client;
}

Client* ClientTable::Find(Connection connection) {
    const auto found = m_clients.find(connection);
    return found == m_clients.end() ? nullptr : &found->second;
}

Client* ClientTable::FindIdentity(const std::string& identity) {
    if (identity.empty())
        return nullptr;
    for (auto& [connection, client] : m_clients) {
        if (client.registered && *client.origin == identity)
            return &client;
    }
    return nullptr;
}

std::string Identity(const std::string& name, const std::string& type, const std::string& instance) {
    return name + "::" + type + "::" + instance;
}

} // namespace DeviceStackServer
