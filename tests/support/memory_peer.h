#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "shared/shared_file.h"
#include "shared/shared_pages.h"
#include "support/raw_socket.h"
#include "support/test_server.h"
#include "zam_platform/frame.h"
#include "zam_platform/unique_fd.h"

/// Peers that share memory with the code under test and put there what a test says.

namespace zam_platform::testing {

/// Hints of a client whose calls follow at once and whose CPU no machine has.
inline constexpr CallHints kElsewhere{.gap = 0, .cpu = 0xFFFE};

/// A frame and the files that came with it.
struct FrameWithFiles {
    Frame frame;
    std::vector<UniqueFd> files;
};

FrameWithFiles ReadFrameWithFiles(const RawSocket& socket);

/// Sends bytes with any number of files.
void SendWithFiles(const RawSocket& socket, const Bytes& bytes, const std::vector<int>& files);

/// Mappings of memory for calls that this process has now, of either side.
std::size_t SharedMappings();

/// What services grant.
inline constexpr MemoryGrant kSoundGrant{.requestSlotBytes = kRequestSlotBytes,
                                         .answerSlotBytes = kAnswerSlotBytes};

Bytes LookFrame(std::uint64_t number);
Bytes MemoryRequestFrame(std::uint64_t number = 0, CallHints hints = kElsewhere);
Bytes MemoryAnswerFrame(std::uint64_t number = 0, MemoryGrant grant = kSoundGrant);

/// A frame's bytes as they stand in a slot.
Bytes InSlot(const Bytes& frame);

/// The frame that a slot holds, as far as it fits.
Frame FrameIn(const SharedWord* slot, std::size_t slotBytes);

template <std::size_t kWords>
Frame FrameIn(const std::array<SharedWord, kWords>& slot) {
    return FrameIn(slot.data(), sizeof(slot));
}

/// A client that greets a server and has memory of it.
class MemoryPeer {
public:
    /// Throws when the server gives none. It touches as much of the answers as it is told, as
    /// clients touch all.
    explicit MemoryPeer(RawSocket socket, std::size_t touched = kAnswerFileBytes);
    explicit MemoryPeer(const TestServer& server, unsigned char tokenByte = 0x11)
        : MemoryPeer(server.Greet(tokenByte)) {}

    RawSocket& Socket() noexcept { return socket_; }
    RequestPages& Requests() noexcept { return *memory_.requests.operator->(); }
    const AnswerPages& Answers() const noexcept { return *memory_.answers.operator->(); }
    const UniqueFd& RequestFile() const noexcept { return files_.at(0); }
    const UniqueFd& AnswerFile() const noexcept { return files_.at(1); }

    /// Reads one byte of each page of so many bytes of the answers.
    void Touch(std::size_t bytes) const;

    /// Leaves bytes in the slot and tells their number; waits for its answer in memory.
    void Put(std::uint64_t number, const Bytes& frame);

    /// Tells the service to look.
    void Look(std::uint64_t number) const { socket_.Send(LookFrame(number)); }

    /// Both of them, for a call. Gives the answer, from memory.
    Frame Call(std::uint64_t number, const Bytes& frame);

    /// Waits for an answer in memory.
    Frame AwaitAnswer(std::uint64_t number) const;

private:
    RawSocket socket_;
    std::vector<UniqueFd> files_;
    ClientMemory memory_;
};

}  // namespace zam_platform::testing
