#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "support/background.h"
#include "support/raw_socket.h"
#include "support/temporary_folder.h"
#include "support/test_call.h"
#include "zam_platform/peer_credentials.h"
#include "zam_platform/runtime_directory.h"
#include "zam_platform/server/listening_socket.h"
#include "zam_platform/server/server.h"

namespace zam_platform::testing {

/// Operations of the test endpoint.
enum TestOperation : std::uint16_t {
    kEcho,    ///< answers at once with the value and the arena of the request
    kHold,    ///< answers like `kEcho`, but not before the test says so
    kFail,    ///< fails with the value as its status
    kDrop,    ///< closes the connection; its arenas are small
    kForget,  ///< gives the responder up
    kFill,    ///< answers with an arena of `value` bytes of `Pattern`
    kCustom,  ///< does what `TestEndpoint::Custom` was given
    kTestOperations,
};

inline constexpr char kTestEndpoint[] = "test.endpoint";
inline constexpr char kTestService[] = "test_service";
inline constexpr std::uint32_t kTestArenaBytes = kMaxArenaBytes;
inline constexpr std::uint32_t kSmallArenaBytes = 16;

/// The one endpoint that the servers of these tests have.
class TestEndpoint final : public EndpointHandler {
public:
    using Function = std::function<void(const Request&, Responder)>;

    EndpointRule Rule();
    void Custom(Function function);

    void OnCall(const Request& request, Responder responder) override;

    /// What was called so far.
    std::vector<TestMessage> Calls() const;
    std::vector<ClientIdentity> Clients() const;

    /// Waits until so many calls wait for their answers.
    void AwaitHeld(std::size_t count) const;

    /// Takes the call that has waited longest.
    Responder TakeHeld();

    /// Answers every call that waits.
    void ReleaseAll();

private:
    struct Held {
        TestMessage request;
        Responder responder;
    };

    mutable std::mutex mutex_;  // guards what follows
    Function custom_;
    std::vector<TestMessage> calls_;
    std::vector<ClientIdentity> clients_;
    std::deque<Held> held_;
};

/// A server with the test endpoint, on a thread of its own, in a directory of its own or a given
/// one.
class TestServer {
public:
    explicit TestServer(ServerLimits limits = {}, AdmissionPolicy admission = OwnUser(),
                        std::optional<std::string> directory = {});
    TestServer(const TestServer&) = delete;
    TestServer& operator=(const TestServer&) = delete;
    ~TestServer();

    static AdmissionPolicy OwnUser();

    const std::string& Directory() const noexcept { return directory_->Path(); }
    std::string SocketPath() const;
    TestEndpoint& Endpoint() noexcept { return endpoint_; }
    Server& Get() noexcept { return *server_; }

    RawSocket Connect() const { return ConnectRaw(SocketPath()); }

    /// Connects and greets.
    RawSocket Greet(unsigned char tokenByte = 0x11) const;

    /// Runs a function on the loop thread and gives its result.
    template <typename Function>
    auto OnLoop(Function function) {
        std::packaged_task<decltype(function())()> task(std::move(function));
        auto result = task.get_future();
        Post([&task] { task(); });
        if (result.wait_for(kBound) != std::future_status::ready) {
            throw std::runtime_error("the loop does not run");
        }
        return result.get();
    }

    std::size_t Connections() {
        return OnLoop([this] { return server_->ConnectionCount(); });
    }

    /// Sessions that have ended so far.
    std::vector<SessionToken> EndedSessions() const;

    /// Whose connections have broken so far.
    std::vector<SessionToken> BrokenSessions() const;

    /// What was lost with each of these connections.
    std::vector<LostCall> LostCalls() const;

    /// Ends the loop; connections stay until the server is destroyed.
    void Stop();

    /// Stops, and destroys the server and its socket.
    void Destroy();

private:
    void Post(std::function<void()> job);

    std::optional<zam_test::TemporaryFolder> own_;
    TestEndpoint endpoint_;
    std::unique_ptr<RuntimeDirectory> directory_;
    std::unique_ptr<ListeningSocket> socket_;
    mutable std::mutex mutex_;
    std::vector<SessionToken> ended_;   // guarded by mutex_
    std::vector<SessionToken> broken_;  // guarded by mutex_
    std::vector<LostCall> lost_;        // guarded by mutex_
    std::unique_ptr<Server> server_;
    std::unique_ptr<Background> thread_;
};

/// Says of all who connect while it lives that they are of one user.
class ConnectingAs {
public:
    explicit ConnectingAs(uid_t user) {
        User(user);
        before_ = SetPeerCredentialsFunction(
            [](int, bool) { return PeerCredentials{.user = user_, .group = 1, .groups = {}}; });
    }
    ConnectingAs(const ConnectingAs&) = delete;
    ConnectingAs& operator=(const ConnectingAs&) = delete;
    ~ConnectingAs() { SetPeerCredentialsFunction(before_); }

    void User(uid_t user) const { user_ = user; }

private:
    static inline std::atomic<uid_t> user_;
    PeerCredentialsFunction before_ = nullptr;
};

/// Calls a server with a link that does without the client's checks of the socket.
std::unique_ptr<ServiceLink> LinkTo(const TestServer& server);

}  // namespace zam_platform::testing
