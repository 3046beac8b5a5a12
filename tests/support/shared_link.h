#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <string>

#include "client/service_link.h"
#include "client/shared_channel.h"
#include "shared/shared_file.h"
#include "shared/shared_pages.h"
#include "support/memory_peer.h"
#include "support/raw_socket.h"

namespace zam_platform::testing {

/// What the channels of a process share whose polls nothing bounds.
ProcessPolling BoundlessPolling();

/// A channel over a connected socket that goes through memory whenever its service lets it, however
/// long its calls take.
std::unique_ptr<Channel> NewHotChannel(UniqueFd socket, const SessionToken& token,
                                       ProcessPolling& process);

/// The service's end of a connection, for a script.
struct SharedPeer {
    RawSocket socket;
    ServiceMemory memory;

    RequestPages const& Requests() const noexcept { return *memory.requests.operator->(); }
    AnswerPages& Answers() noexcept { return *memory.answers.operator->(); }

    /// Offers memory and gives it, for a connection's first call.
    void Grant() const;

    /// Writes an answer into the slot and tells its number.
    void Answer(std::uint64_t number, const Bytes& frame);
    void Answer(std::uint64_t number, std::uint64_t value, const Bytes& arena = {}) {
        Answer(number, AnswerFrame(number, value, arena));
    }

    /// Waits for a request in memory.
    void AwaitRequest(std::uint64_t number) const;
};

/// A link whose connections have hot channels, and end in the test. On each the peer has granted
/// memory and says that it looks there, before the link's first byte comes.
class SharedLink {
public:
    using Script = std::function<void(SharedPeer&)>;

    SharedLink();

    ServiceLink& operator*() noexcept { return link_; }

    /// What the peer of the next connection does before the link uses it, in the place of granting.
    void Prepare(Script script);

    /// The next connection's peer grants memory and answers the first call there.
    void PrepareAnswer(std::uint64_t value);

    /// Makes the first call of the first connection, through memory; gives its peer. Throws when
    /// the call fails.
    SharedPeer& Begin();

    /// What the connections share.
    ProcessPolling& Process() noexcept { return process_; }

    SharedPeer& At(std::size_t index);
    std::size_t Connections() const;

private:
    std::unique_ptr<Channel> Connect(const SessionToken& token);

    mutable std::mutex mutex_;
    std::deque<SharedPeer> peers_;  // guarded by mutex_
    std::deque<Script> scripts_;    // guarded by mutex_
    ProcessPolling process_ = BoundlessPolling();
    ServiceLink link_;
};

}  // namespace zam_platform::testing
