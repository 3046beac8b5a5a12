#pragma once

#include <sys/types.h>

#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "zam_platform/peer_credentials.h"
#include "zam_platform/server/endpoint.h"
#include "zam_platform/server/session_registry.h"

namespace zam_platform {

class SlotPoller;

/// Whom a server serves: always its own user and root, and the members of one group.
struct AdmissionPolicy {
    uid_t ownUser = 0;
    std::optional<gid_t> group;

    bool Admits(const PeerCredentials& peer) const;
};

/// Limits of a server. Those per user keep one user's clients from starving another's.
struct ServerLimits {
    std::size_t connectionsPerUser = 4096;
    std::size_t sessionsPerUser = 4096;                         ///< those in their grace among them
    std::size_t bufferedBytesPerUser = std::size_t{64} << 20U;  ///< of half-received frames
    std::size_t queuedBytesPerUser = std::size_t{64} << 20U;    ///< of answers not yet taken
    std::chrono::milliseconds frameTimeout{5000};  ///< from a frame's first byte to its last
    std::chrono::milliseconds sessionGrace{2000};  ///< from a session's last connection to its end
    std::chrono::milliseconds acceptPause{100};    ///< after running out of descriptors

    /// Longest look for a client's next call in shared memory; 0: calls come through sockets alone.
    std::chrono::nanoseconds spinCap{0};

    /// Shared memory that no call has used for so long is given up.
    std::chrono::milliseconds memoryKept{10000};
};

/// What a user's connections hold.
struct UserUsage {
    std::size_t connections = 0;
    std::size_t bufferedBytes = 0;
    std::size_t queuedBytes = 0;
};

class QuietUsers;

/// Accepts connections, checks what comes over them against the endpoints' rules, and hands calls
/// to their handlers. One thread runs the loop; handlers run on it. What breaks a rule is logged
/// and closes its connection, after a refusal frame that tells the client why.
class Server {
public:
    Server(std::vector<EndpointRule> endpoints, AdmissionPolicy admission, ServerLimits limits);
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Closes every connection. Every `Responder` must be gone and `Run` have returned.
    ~Server();

    /// Serves one more endpoint. Before `Run`.
    void Serve(EndpointRule endpoint);

    /// Serves a listening socket, whose ownership it takes. Before `Run`.
    void Accept(int listeningSocket);

    /// Called on the loop thread when a session has ended; must not throw. Before `Run`.
    void OnSessionEnd(std::function<void(const SessionToken&)> observer);

    /// Told of a client whose connection has broken, and what is known of the one call that was
    /// lost with it.
    using BreakObserver = std::function<void(const SessionToken& client, const LostCall& lost)>;

    /// Called on the loop thread when a connection of a client has broken: it ended, on either
    /// side, within a frame or with a call unanswered, or with an answer that was not taken whole.
    /// A connection that a client closes between two calls is not broken. Must not throw. Before
    /// `Run`.
    void OnConnectionBroken(BreakObserver observer);

    /// Takes note of connections that a client has given up already although the loop has not come
    /// to their ends yet. Who decides by what has broken asks for this first. A connection whose
    /// greeting is still unread is nobody's yet and is passed over. On the loop thread.
    void NoticeBroken(const SessionToken& client);

    /// Runs the loop until `Stop`; returns at once when that has been called before. What lacks
    /// memory is given up, and the loop goes on.
    void Run();

    /// Ends `Run` for good. From any thread.
    void Stop();

    /// Behind `Run`: nobody is accepted and nothing read any more, so that what is under way comes
    /// to its end. Answers are still sent.
    void TakeNoMore() noexcept { isClosing_ = true; }

    /// Behind `Run`: runs what the loop has next, and waits for that.
    void RunOne();

    /// Behind `Run`: runs what is ready, until nothing is.
    void RunReady();

    /// For timers and other descriptors that handlers need; everything on it runs on the loop
    /// thread.
    asio::io_context& Context() noexcept { return context_; }

    /// Connections that are open. On the loop thread, or when the loop does not run.
    std::size_t ConnectionCount() const noexcept { return connections_.size(); }

private:
    friend class ServerConnection;

    using Socket = asio::local::stream_protocol::socket;
    struct Listener;

    /// The calling thread runs the loop while this lives.
    class LoopScope;

    /// Runs a part of the loop. What lacks memory is given up.
    template <typename Part>
    void Guard(Part part);

    void AcceptNext(Listener& listener);
    std::error_code AcceptOne(Listener& listener) noexcept;
    void PauseAccepting(Listener& listener, const std::error_code& reason);
    void OnAccepted(Socket socket);
    const EndpointRule* FindEndpoint(std::uint16_t riid) const noexcept;
    std::uint16_t FindRiid(std::string_view endpoint) const noexcept;
    std::uint16_t Offers() const noexcept;

    /// Whether the calling thread runs the loop. The looks at shared memory are none of the
    /// context's handlers, so that it does not know.
    bool IsLoopThread() const noexcept {
        return loopThread_.load(std::memory_order_relaxed) == std::this_thread::get_id() ||
               context_.get_executor().running_in_this_thread();
    }

    std::vector<EndpointRule> endpoints_;  ///< constant once calls come
    const AdmissionPolicy admission_;
    const ServerLimits limits_;
    const std::unique_ptr<QuietUsers> quiet_;
    mutable asio::io_context context_{1};  ///< `get_executor` is not const
    const std::unique_ptr<SlotPoller> poller_;
    SessionRegistry sessions_;
    BreakObserver onBroken_;
    std::map<uid_t, UserUsage> usage_;
    std::set<std::shared_ptr<ServerConnection>> connections_;
    std::map<SessionToken, std::set<ServerConnection*>> greeted_;  ///< those of them that have
    std::vector<std::unique_ptr<Listener>> listeners_;
    bool isClosing_ = false;
    std::atomic<std::thread::id> loopThread_;
};

}  // namespace zam_platform
