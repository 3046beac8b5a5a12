#include <sys/random.h>

#include <cerrno>
#include <chrono>
#include <memory>
#include <utility>

#include "client/call_bounds.h"
#include "client/call_under_way.h"
#include "client/service_link.h"
#include "client/service_link_connection.h"

/// How a link's connections are made, kept and closed.

namespace zam_platform {
namespace {

/// How long a connect that may be interrupted goes on before it looks.
constexpr std::chrono::milliseconds kConnectSlice{100};

SessionToken NewToken() {
    SessionToken token{};
    std::size_t filled = 0;
    while (filled < token.size()) {
        const ssize_t got = ::getrandom(token.data() + filled, token.size() - filled, 0);
        if (got > 0) {
            filled += static_cast<std::size_t>(got);
        } else if (errno != EINTR) {
            throw PosixError("random bytes for a session token", errno);
        }
    }
    return token;
}

/// Adds what is counted.
void Add(const LinkUse& use, LinkUse& sum) noexcept {
    sum.calls += use.calls;
    sum.channels.hasMemory = sum.channels.hasMemory || use.channels.hasMemory;
    sum.channels.memoryCalls += use.channels.memoryCalls;
    sum.channels.vainPolls += use.channels.vainPolls;
    sum.channels.vainTime += use.channels.vainTime;
}

}  // namespace

ServiceLink::ServiceLink(ChannelFactory connect)
    : connect_(std::move(connect)), token_(NewToken()) {}

ServiceLink::~ServiceLink() {
    const qor::MutexLock lock(mutex_);
    for (Connection* connection = all_; connection != nullptr;) {
        delete std::exchange(connection, connection->next);
    }
}

ServiceLink::Connection* ServiceLink::TakeIdle() noexcept {
    const qor::MutexLock lock(mutex_);
    Connection* const connection = idle_;
    if (connection != nullptr) {
        idle_ = connection->nextIdle;
        --idleCount_;
    }
    return connection;
}

ServiceLink::Connection* ServiceLink::Connect(const Deadline& deadline,
                                              const CallUnderWay& underWay) {
    SessionToken token;
    {
        const qor::MutexLock lock(mutex_);
        token = token_;
    }
    auto connection = std::make_unique<Connection>();
    connection->channel = MakeChannel(token, deadline, underWay);
    const qor::MutexLock lock(mutex_);
    connection->next = all_;
    if (all_ != nullptr) {
        all_->previous = connection.get();
    }
    all_ = connection.get();
    return connection.release();
}

std::unique_ptr<Channel> ServiceLink::MakeChannel(const SessionToken& token,
                                                  const Deadline& deadline,
                                                  const CallUnderWay& underWay) const {
    if (!underWay.CanBeInterrupted()) {
        return connect_(token, deadline);
    }
    // Nothing ends a connect from outside, so it looks up now and then.
    for (;;) {
        const Deadline slice = Earlier(deadline, std::chrono::steady_clock::now() + kConnectSlice);
        try {
            return connect_(token, slice);
        } catch (const PlatformError& error) {
            underWay.ThrowIfInterrupted();
            if (error.Status() != kStatusTimeout || slice == deadline) {
                throw;
            }
        }
    }
}

void ServiceLink::GiveBack(Connection* connection) noexcept {
    {
        const qor::MutexLock lock(mutex_);
        if (idleCount_ < kMaxIdleChannels) {
            NoteUse(*connection);
            connection->nextIdle = idle_;
            idle_ = connection;
            ++idleCount_;
            return;
        }
    }
    Discard(connection);
}

void ServiceLink::Discard(Connection* connection) noexcept {
    // Closed under the lock, or a fork in between would leave the child a copy that nobody knows.
    const qor::MutexLock lock(mutex_);
    NoteUse(*connection);
    connection->told.channels.hasMemory = false;
    Add(connection->told, ended_);
    Unlink(connection);
    delete connection;
}

void ServiceLink::Unlink(Connection* connection) noexcept {
    (connection->previous == nullptr ? all_ : connection->previous->next) = connection->next;
    if (connection->next != nullptr) {
        connection->next->previous = connection->previous;
    }
}

void ServiceLink::NoteUse(Connection& connection) noexcept {
    const ChannelUse& use = connection.channel->Use();
    if (use.offers && !connection.told.channels.offers) {
        ended_.channels.offers = use.offers;
    }
    connection.told = {.channels = use, .calls = connection.answered};
}

LinkUse ServiceLink::Use() noexcept {
    const qor::MutexLock lock(mutex_);
    for (Connection* connection = idle_; connection != nullptr; connection = connection->nextIdle) {
        connection->told.channels.hasMemory = connection->channel->HasMemory();
    }
    LinkUse use = ended_;
    for (const Connection* connection = all_; connection != nullptr;
         connection = connection->next) {
        Add(connection->told, use);
    }
    return use;
}

void ServiceLink::RestartInChild() noexcept {
    for (Connection* connection = all_; connection != nullptr; connection = connection->next) {
        connection->channel->Abandon();
    }
    while (idle_ != nullptr) {
        Connection* const connection = idle_;
        idle_ = connection->nextIdle;
        Unlink(connection);
        delete connection;
    }
    // What is left was leased by threads that the child does not have: nobody will free it.
    all_ = nullptr;
    idleCount_ = 0;
    ended_ = {.channels = {.offers = ended_.channels.offers}};
    unsaid_ = {};  // the parent's
    failureDelayMs_.store(0, std::memory_order_relaxed);
    token_ = NewToken();
    mutex_.unlock();
}

}  // namespace zam_platform
