#include "KnxStackHost/Links/NameLookUp.h"

#include "KnxStackHost/BlockedSignals.h"
#include "KnxStackHost/ExceptionText.h"

#include <boost/asio/post.hpp>

#include <cerrno>
#include <mutex>
#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>
#include <system_error>
#include <thread>
#include <utility>

namespace KnxStackHost {

/// What the asking thread and the one that waits have in common.
struct NameLookUp::Shared : std::enable_shared_from_this<Shared> {
    /// On the asking thread.
    void Finish(LookedUp result) {
        const std::lock_guard lock(mutex);
        if (context == nullptr)
            return;
        boost::asio::post(*context, [self = shared_from_this(), result = std::move(result)] {
            if (const auto call = std::exchange(self->answer, nullptr))
                call(result);
        });
    }

    void Cancel() {
        answer = nullptr;
        const std::lock_guard lock(mutex);
        context = nullptr;
    }

    Answer answer;    // thread of the io_context only
    std::mutex mutex; // guards what follows
    boost::asio::io_context* context = nullptr;
};

LookedUp LookUpName(const std::string& name) {
    addrinfo wanted{};
    wanted.ai_family = AF_INET;
    wanted.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    const int failure = ::getaddrinfo(name.c_str(), nullptr, &wanted, &found);
    if (failure != 0)
        return {0, failure == EAI_SYSTEM ? std::generic_category().message(errno) : ::gai_strerror(failure)};
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, ::freeaddrinfo);
    const auto* const address = reinterpret_cast<const sockaddr_in*>(found->ai_addr);
    return {ntohl(address->sin_addr.s_addr), "it has the address 0.0.0.0"};
}

NameLookUp::NameLookUp(boost::asio::io_context& context, Ask ask)
    : m_context(context), m_ask(std::move(ask)) {}

NameLookUp::~NameLookUp() {
    Cancel();
}

void NameLookUp::Start(const std::string& name, Answer answer) {
    Cancel();
    m_running = std::make_shared<Shared>();
    m_running->answer = std::move(answer);
    m_running->context = &m_context;
    const BlockedSignals blocked;
    std::thread asking([shared = m_running, ask = m_ask, name] {
        try {
            shared->Finish(ask(name));
        } catch (...) {
            shared->Finish({0, CurrentExceptionText()});
        }
    });
    pthread_setname_np(asking.native_handle(), "name-look-up");
    asking.detach();
}

void NameLookUp::Cancel() {
    if (m_running)
        m_running->Cancel();
    m_running.reset();
}

} // namespace KnxStackHost
