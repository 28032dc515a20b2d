// Names of machines, looked up without anybody having to wait for it. Internal to the host.
#pragma once

#include <boost/asio/io_context.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace KnxStackHost {

/// The IPv4 address of a machine, or why it is not known.
struct LookedUp {
    std::uint32_t address = 0; ///< 0 = not known
    std::string cause;         ///< when not known
};

/// Asks the system, which may take minutes when a name server is dead.
LookedUp LookUpName(const std::string& name);

/// Looks a name up on a thread of its own, which nobody waits for: it is left behind when this object goes
/// while it runs. All calls on the thread of the io_context.
class NameLookUp {
public:
    using Ask = std::function<LookedUp(const std::string& name)>;
    using Answer = std::function<void(const LookedUp&)>;

    explicit NameLookUp(boost::asio::io_context& context, Ask ask = LookUpName);
    /// Like Cancel().
    ~NameLookUp();
    NameLookUp(const NameLookUp&) = delete;
    NameLookUp& operator=(const NameLookUp&) = delete;

    /// Calls `answer` once, later. One at a time: ends the one before. Throws std::system_error when there
    /// can be no thread.
    void Start(const std::string& name, Answer answer);

    /// The answer is not called any more.
    void Cancel();

private:
    struct Shared;

    boost::asio::io_context& m_context;
    const Ask m_ask;
    std::shared_ptr<Shared> m_running;
};

} // namespace KnxStackHost
