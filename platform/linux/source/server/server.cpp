#include "zam_platform/server/server.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <asio/buffer.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>
#include <new>
#include <utility>

#include "server/quiet_users.h"
#include "server/server_connection.h"
#include "server/slot_poller.h"
#include "vd/service_locator.h"
#include "zam_platform/posix_error.h"
#include "zam_platform/report.h"
#include "zam_platform/server/log_context.h"
#include "zam_platform/unique_fd.h"

namespace zam_platform {
namespace {

constexpr char kSourceFile[] = "server";

/// Tells a peer why it is turned away, as far as the socket takes it.
void SendRefusal(asio::local::stream_protocol::socket& socket, TransportStatus status) {
    std::array<unsigned char, kPreludeBytes> head;
    EncodePrelude({.kind = FrameKind::Refusal, .status = status}, head.data());
    std::error_code ignored;
    socket.write_some(asio::buffer(head), ignored);
}

/// Takes a connection from a listening socket. By hand, because no descriptor may ever be without
/// close-on-exec.
std::error_code AcceptInto(asio::local::stream_protocol::socket& socket, int listening) {
    UniqueFd accepted(::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!accepted) {
        return {errno, std::system_category()};
    }
    std::error_code error;
    socket.assign(asio::local::stream_protocol(), accepted.Get(), error);
    if (!error) {
        accepted.Release();
    }
    return error;
}

/// The client may have gone before it was accepted.
bool IsNobodyThere(const std::error_code& error) {
    return error == std::errc::resource_unavailable_try_again ||
           error == std::errc::connection_aborted || error == std::errc::interrupted;
}

}  // namespace

bool AdmissionPolicy::Admits(const PeerCredentials& peer) const {
    return peer.user == ownUser || peer.user == 0 ||
           (group && (peer.group == *group || std::find(peer.groups.begin(), peer.groups.end(),
                                                        *group) != peer.groups.end()));
}

struct Server::Listener {
    Listener(Server& server, int listeningSocket)
        : acceptor(server.context_, asio::local::stream_protocol(), listeningSocket),
          pause(server.context_, [this, &server] { server.AcceptNext(*this); }) {}

    asio::local::stream_protocol::acceptor acceptor;
    Alarm pause;
    HandlerRoom acceptRoom;
    bool isPausing = false;  ///< out of descriptors or memory since it was logged
};

class Server::LoopScope {
public:
    explicit LoopScope(Server& server) noexcept : server_(server) {
        server_.loopThread_ = std::this_thread::get_id();
    }
    LoopScope(const LoopScope&) = delete;
    LoopScope& operator=(const LoopScope&) = delete;
    ~LoopScope() { server_.loopThread_ = std::thread::id(); }

private:
    Server& server_;
};

Server::Server(std::vector<EndpointRule> endpoints, AdmissionPolicy admission, ServerLimits limits)
    : endpoints_(std::move(endpoints)),
      admission_(admission),
      limits_(limits),
      quiet_(std::make_unique<QuietUsers>()),
      poller_(std::make_unique<SlotPoller>(context_, limits.spinCap, limits.memoryKept)),
      sessions_(context_, limits.sessionGrace, limits.sessionsPerUser) {}

Server::~Server() {
    // What waits in the loop holds connections, which refer to the members above. A connection that
    // was accepted when the loop stopped waits there too, and must find no listener open. The
    // listeners themselves hold the room that their handlers wait in.
    isClosing_ = true;
    for (const auto& listener : listeners_) {
        std::error_code ignored;
        listener->acceptor.close(ignored);
        listener->pause.Cancel();
    }
    sessions_.OnEnd({});
    onBroken_ = {};
    const std::set<std::shared_ptr<ServerConnection>> connections = std::move(connections_);
    connections_.clear();
    // Closed before the loop is cleared: a call that was read when the loop stopped goes to nobody.
    for (const auto& connection : connections) {
        connection->Close();
    }
    const LoopScope loopScope(*this);
    context_.restart();
    context_.poll();
}

void Server::Serve(EndpointRule endpoint) {
    endpoints_.push_back(std::move(endpoint));
}

void Server::Accept(int listeningSocket) {
    listeners_.push_back(std::make_unique<Listener>(*this, listeningSocket));
    AcceptNext(*listeners_.back());
}

void Server::OnSessionEnd(std::function<void(const SessionToken&)> observer) {
    sessions_.OnEnd(std::move(observer));
}

void Server::OnConnectionBroken(BreakObserver observer) {
    onBroken_ = std::move(observer);
}

void Server::NoticeBroken(const SessionToken& client) {
    const auto found = greeted_.find(client);
    if (found == greeted_.end()) {
        return;
    }
    // All are asked in one system call: a client may have thousands, nearly all of them open.
    std::vector<pollfd> ends;
    std::vector<ServerConnection*> ofClient;
    ends.reserve(found->second.size());
    ofClient.reserve(found->second.size());
    for (ServerConnection* const connection : found->second) {
        ends.push_back({.fd = connection->Descriptor(), .events = POLLRDHUP, .revents = 0});
        ofClient.push_back(connection);
    }
    if (::poll(ends.data(), ends.size(), 0) <= 0) {
        return;
    }
    // A connection that breaks leaves the set.
    std::vector<std::shared_ptr<ServerConnection>> ended;
    for (std::size_t index = 0; index < ends.size(); ++index) {
        if (ends[index].revents != 0) {
            ended.push_back(ofClient[index]->shared_from_this());
        }
    }
    for (const auto& connection : ended) {
        connection->NoticeEnd();
    }
}

void Server::Run() {
    const LogsWithoutWaiting logsWithoutWaiting;
    const LoopScope loopScope(*this);
    const auto work = asio::make_work_guard(context_);
    Guard([this] {
        while (!context_.stopped()) {
            if (poller_->IsPolling()) {
                poller_->Poll();
            } else {
                context_.run_one();
            }
        }
    });
    poller_->Stop();
}

template <typename Part>
void Server::Guard(Part part) {
    for (;;) {
        try {
            part();
            return;
        } catch (const std::bad_alloc&) {
            // The loop goes on with the next.
            Report(zor::logger::kLevelError, kSourceFile, "Run", "out of memory");
        }
    }
}

void Server::RunOne() {
    const LoopScope loopScope(*this);
    const auto work = asio::make_work_guard(context_);
    context_.restart();
    try {
        context_.run_one();
    } catch (const std::bad_alloc&) {
        Report(zor::logger::kLevelError, kSourceFile, "RunOne", "out of memory");
    }
}

void Server::RunReady() {
    const LoopScope loopScope(*this);
    bool isReady = true;
    while (isReady) {
        context_.restart();
        isReady = false;
        Guard([this, &isReady] { isReady = context_.poll() != 0 || isReady; });
    }
}

void Server::Stop() {
    context_.stop();
}

void Server::AcceptNext(Listener& listener) {
    listener.acceptor.async_wait(
        asio::socket_base::wait_read,
        InRoom(listener.acceptRoom, [this, &listener](std::error_code error) {
            if (isClosing_ || error == asio::error::operation_aborted) {
                return;
            }
            if (!error) {
                error = AcceptOne(listener);
            }
            if (!error || IsNobodyThere(error)) {
                AcceptNext(listener);
            } else {
                PauseAccepting(listener, error);
            }
        }));
}

std::error_code Server::AcceptOne(Listener& listener) noexcept {
    try {
        Socket socket(context_);
        const std::error_code error = AcceptInto(socket, listener.acceptor.native_handle());
        if (!error) {
            listener.isPausing = false;
            OnAccepted(std::move(socket));
        }
        return error;
    } catch (const std::bad_alloc&) {
        return std::make_error_code(std::errc::not_enough_memory);
    }
}

void Server::PauseAccepting(Listener& listener, const std::error_code& reason) {
    // Out of descriptors or memory: those who wait stay in the socket's queue.
    if (!std::exchange(listener.isPausing, true)) {
        ReportText(zor::logger::kLevelError, kSourceFile, "PauseAccepting", [&] {
            return fmt::format("accept: {}: trying again every {} ms", reason.message(),
                               limits_.acceptPause.count());
        });
    }
    listener.pause.RingAfter(limits_.acceptPause);
}

void Server::OnAccepted(Socket socket) {
    std::error_code ignored;
    socket.non_blocking(true, ignored);
    PeerCredentials peer;
    try {
        peer = QueryPeerCredentials(socket.native_handle(), admission_.group.has_value());
    } catch (const PlatformError& error) {
        Report(zor::logger::kLevelError, kSourceFile, "OnAccepted", error.what());
        return;
    }
    const bool isAdmitted = admission_.Admits(peer);
    const LogsForUser logsForUser(isAdmitted ? peer.user : kStrangers);
    if (!isAdmitted) {
        Report(zor::logger::kLevelError, kSourceFile, "OnAccepted",
               fmt::format("user {} is not served: connection closed", peer.user));
        SendRefusal(socket, kStatusNotAdmitted);
        return;
    }
    if (usage_[peer.user].connections >= limits_.connectionsPerUser) {
        Report(zor::logger::kLevelError, kSourceFile, "OnAccepted",
               fmt::format("user {} has {} connections, the most allowed: connection closed",
                           peer.user, limits_.connectionsPerUser));
        SendRefusal(socket, kStatusQuota);
        return;
    }
    const auto connection = std::make_shared<ServerConnection>(*this, std::move(socket), peer.user);
    connections_.insert(connection);
    connection->Start();
}

const EndpointRule* Server::FindEndpoint(std::uint16_t riid) const noexcept {
    const auto found =
        std::find_if(endpoints_.begin(), endpoints_.end(),
                     [riid](const EndpointRule& endpoint) { return endpoint.riid == riid; });
    return found == endpoints_.end() ? nullptr : &*found;
}

std::uint16_t Server::Offers() const noexcept {
    const std::uint16_t memory = poller_->IsOn() ? kOfferSharedMemory : 0;
    return kOfferFailedTransfer | memory;
}

std::uint16_t Server::FindRiid(std::string_view endpoint) const noexcept {
    const auto found =
        std::find_if(endpoints_.begin(), endpoints_.end(),
                     [endpoint](const EndpointRule& rule) { return rule.name == endpoint; });
    return found == endpoints_.end() ? VD_UNKNOWN_RIID : found->riid;
}

}  // namespace zam_platform
