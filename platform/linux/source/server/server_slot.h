#pragma once

#include <cstddef>
#include <cstdint>

#include "shared/shared_file.h"
#include "shared/shared_pages.h"
#include "zam_platform/frame.h"

namespace zam_platform {

/// The service's end of the memory that it shares with one connection. It knows the order of loads
/// and stores, and no reasons. On the loop thread.
class ServerSlot {
public:
    /// Throws `PlatformError`.
    ServerSlot() : memory_(MakeServiceMemory()) {}

    /// Files for the client.
    const UniqueFd& RequestFile() const noexcept { return memory_.requestFile; }
    const UniqueFd& AnswerFile() const noexcept { return memory_.answerFile; }

    /// They have been sent.
    void CloseFiles() noexcept;

    /// The number of the newest request; the client may write anything there.
    std::uint64_t RequestNumber() const noexcept { return memory_.requests->request.load(); }

    /// What clients are told of whether their requests are looked for. After any change but to
    /// `kPolling` the request's number is to be looked at once more.
    Polling State() const noexcept { return state_; }
    void Tell(Polling state) noexcept;

    /// Tells that bytes of this request are about to be read.
    void Take(std::uint64_t number) noexcept { memory_.answers->taken.store(number); }

    /// Copies out of the request's slot.
    std::size_t Read(std::size_t offset, void* to, std::size_t bytes) const noexcept {
        return ReadSlot(memory_.requests->slot.data(), offset, to, bytes);
    }

    static bool FitsRequest(const Prelude& prelude) noexcept {
        return SlotRoom(prelude) <= kRequestSlotBytes;
    }
    /// Whether an answer has room in pages that are there. A page that came with an answer would
    /// count as the service's for as long as the client keeps the file, whatever becomes of the
    /// connection.
    bool FitsAnswer(const Prelude& prelude) noexcept {
        const std::size_t room = SlotRoom(prelude);
        return room <= answerRoom_ || (memory_.answerFile && room <= FindAnswerRoom());
    }

    /// Answers with a frame that fits. False when the client looks for it no more, and has to be
    /// told by a look frame.
    bool Answer(const Prelude& prelude, const void* message, const void* arena) noexcept;

    /// Whether this call's answer stands there and its client says that it has it, or looks for it.
    bool IsTaken(std::uint64_t number) const noexcept {
        return answered_ == number && memory_.requests->waiting.load() >= number;
    }

private:
    std::size_t FindAnswerRoom() noexcept;

    ServiceMemory memory_;
    /// At first what the slot has in the page that the service's own numbers stand in.
    std::size_t answerRoom_ = kSharedPage - offsetof(AnswerPages, slot);
    std::uint64_t answered_ = 0;
    Polling state_ = kAsleep;
};

}  // namespace zam_platform
