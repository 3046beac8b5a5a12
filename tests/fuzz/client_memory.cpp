#include "client_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "check.h"
#include "client/shared_channel.h"
#include "shared/shared_file.h"
#include "shared/shared_pages.h"
#include "shared/step.h"
#include "support/wire_model.h"
#include "zam_platform/posix_error.h"
#include "zam_platform/transport_status.h"

/// An input is a script of what the service does, see `Script::Act`: before a call, between its two
/// halves, and at each step that the channel takes towards memory. All of it is done on the one
/// thread, and the channel never waits: its deadline has passed.

namespace zam_fuzz {
namespace {

using zam_platform::FrameKind;
using zam_platform::SharedWord;
using zam_platform::Step;
using zam_platform::UniqueFd;
using zam_test::WireBytes;

constexpr std::size_t kHeadBytes = 32;
constexpr std::uint32_t kFixedBytes = 40;
constexpr std::uint32_t kRoom = 600;
constexpr unsigned char kUntouched = 0xEE;
constexpr int kMostCalls = 6;

/// Has passed: what is not there does not come.
constexpr std::chrono::steady_clock::time_point kNow{};

class Script {
public:
    Script(Input input, int socket)
        : input_(input), socket_(socket), memory_(zam_platform::MakeServiceMemory()) {}

    bool IsAtEnd() const noexcept { return input_.IsAtEnd(); }

    /// A call of this number begins.
    void Begin(std::uint64_t number, const WireBytes& frame) {
        number_ = number;
        frame_ = &frame;
        hasLooked_ = hasAsked_ = false;
        taken_.clear();
        Reach();
    }

    /// Does what comes before the next wait.
    void Reach() {
        while (wait_ == 0 && !input_.IsAtEnd()) {
            Act(input_.Byte());
        }
        wait_ -= wait_ == 0 ? 0 : 1;
    }

    void Reach(Step step) {
        // How often a channel looks depends on time.
        if (step == Step::ClientLooks && std::exchange(hasLooked_, true)) {
            return;
        }
        if (step == Step::ClientLooksWhoPolls) {
            hasAsked_ = true;
            CheckRequest();
        }
        Reach();
        if (step == Step::ClientTakes) {
            taken_.resize(kHeadBytes + kFixedBytes + kRoom);
            zam_platform::ReadSlot(memory_.answers->slot.data(), 0, taken_.data(), taken_.size());
        }
    }

    bool HasAsked() const noexcept { return hasAsked_; }
    std::uint64_t Taken() const noexcept { return memory_.answers->taken.load(); }

    /// The answers' slot as the channel came to copy it; empty when it did not.
    const WireBytes& TakenSlot() const noexcept { return taken_; }

private:
    enum Command { kWait, kFrame, kWord, kWrite, kSpoil, kGrant, kOther, kSocket };

    void Act(std::uint8_t command) {
        const unsigned form = command >> 3U;
        switch (command & 7U) {
            case kWait:
                wait_ = form + 1;
                return;
            case kFrame:
                return SendFrame(form);
            case kWord:
                return StoreWord(form);
            case kWrite:
                return WriteAnswer(form);
            case kSpoil: {
                const std::size_t at = input_.Word();
                auto& slot = memory_.answers->slot;
                slot[(form == 0 ? at : form - 1) % slot.size()] ^=
                    static_cast<std::uint64_t>(input_.Byte()) << at % 8 * 8;
                return;
            }
            case kGrant:
                return Grant(form);
            case kOther:
                // Another connection of this process ends.
                zam_platform::SocketChannel(UniqueFd(::dup(socket_)), {});
                return;
            default:
                if (form == 0) {
                    ::shutdown(socket_, SHUT_WR);
                } else if (form == 1) {
                    ::shutdown(socket_, SHUT_RDWR);
                } else {
                    Send(input_.Bytes(input_.Byte()), {});
                }
                return;
        }
    }

    /// The number of the call, but for what the input adds to it.
    std::uint64_t NumberNear() {
        return number_ + static_cast<std::uint64_t>(static_cast<std::int8_t>(input_.Byte()));
    }

    void SendFrame(unsigned form) {
        const auto status = static_cast<std::int32_t>(form >> 2U);
        switch (form & 3U) {
            case 0: {
                const std::uint64_t number = NumberNear();
                return Send(AnswerFrame(number, status, input_.Byte()), {});
            }
            case 1:
                return Send(zam_test::WireFrame({.kind = 9, .callNumber = NumberNear()}), {});
            case 2:
                return Send(zam_test::WireFrame({.kind = 6, .status = status}), {});
            default: {
                const std::uint64_t number = NumberNear();
                return Send(zam_test::WireFrame({.kind = 3, .callNumber = number},
                                                {0xFF, 0xFF, input_.Byte(), 0, 0, 0, 0, 0}),
                            {});
            }
        }
    }

    static WireBytes AnswerFrame(std::uint64_t number, std::int32_t status, std::uint8_t arena) {
        const zam_test::WireHead head{.kind = 5, .callNumber = number, .status = status};
        return status != 0 ? zam_test::WireFrame(head)
                           : zam_test::WireFrame(head, zam_test::WireMessage(7, 0, kFixedBytes),
                                                 WireBytes(std::size_t{arena} * 3, arena));
    }

    void StoreWord(unsigned form) {
        auto& pages = *memory_.answers.operator->();
        const std::uint64_t number = (form & 4U) != 0 ? input_.Byte() : NumberNear();
        switch (form & 3U) {
            case 0:
                return pages.polling.store(form >> 2U);
            case 1:
                return pages.taken.store(number);
            case 2:
                return pages.answer.store(number);
            default:
                pages.taken.store(number);
                return pages.answer.store(number);
        }
    }

    /// As a service would, but perhaps of another number.
    void WriteAnswer(unsigned form) {
        const std::uint64_t number = (form & 1U) != 0 ? NumberNear() : number_;
        // The fixed part is a multiple of 8.
        WireBytes frame = AnswerFrame(number, static_cast<std::int32_t>(form >> 2U), input_.Byte());
        auto& pages = *memory_.answers.operator->();
        zam_platform::WriteSlot(pages.slot.data(), 0, frame.data(), frame.size());
        pages.taken.store(number);
        if ((form & 2U) == 0) {
            pages.answer.store(number);
        }
    }

    /// Grants memory, sound or not, for the call that is under way; `form` says whether it is
    /// offered first.
    void Grant(unsigned form) {
        const unsigned kind = form & 15U;
        zam_platform::MemoryGrant grant{.requestSlotBytes = zam_platform::kRequestSlotBytes,
                                        .answerSlotBytes = zam_platform::kAnswerSlotBytes};
        if (kind == 10) {
            grant.requestSlotBytes = input_.Word();
        }
        if ((form & 16U) == 0) {
            Send(zam_test::WireFrame({.kind = 3, .callNumber = number_ - 1},
                                     {0xFF, 0xFF, 2, 0, 0, 0, 0, 0}),
                 {});
        }
        if (kind == 11) {
            return Send(
                zam_test::WireFrame(
                    {.kind = 8, .callNumber = number_ - 1, .status = zam_platform::kStatusQuota}),
                {});
        }
        WireBytes fixed(sizeof(grant));
        std::memcpy(fixed.data(), &grant, sizeof(grant));
        const UniqueFd other = OtherFile(kind);
        Send(zam_test::WireFrame({.kind = 8, .callNumber = number_ - 1}, fixed),
             Files(kind, other.Get()));
    }

    /// A file like those of services, but for one thing.
    static UniqueFd OtherFile(unsigned kind) {
        switch (kind) {
            case 1:
                return NewFile(zam_platform::kRequestFileBytes, 0);
            case 2:
                return NewFile(zam_platform::kAnswerFileBytes, 0);
            case 3:
                return NewFile(zam_platform::kRequestFileBytes - zam_platform::kSharedPage, kSeals);
            case 4:
                return NewFile(zam_platform::kAnswerFileBytes + zam_platform::kSharedPage, kSeals);
            case 12:
                return NewFile(zam_platform::kRequestFileBytes, kSeals | F_SEAL_WRITE);
            case 13:
                return NewFile(zam_platform::kAnswerFileBytes, kSeals & ~F_SEAL_SHRINK);
            default:
                return {};
        }
    }

    std::vector<int> Files(unsigned kind, int other) const {
        const int requests = memory_.requestFile.Get();
        const int answers = memory_.answerFile.Get();
        switch (kind) {
            case 1:
            case 3:
            case 12:
                return {other, answers};
            case 2:
            case 4:
            case 13:
                return {requests, other};
            case 5:
                return {answers, requests};
            case 6:
                return {};
            case 7:
                return {requests};
            case 8:
                return {requests, answers, requests};
            case 9:
                return {socket_, answers};
            default:
                return {requests, answers};
        }
    }

    static constexpr int kSeals = F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_SEAL;

    static UniqueFd NewFile(std::size_t bytes, int seals) {
        UniqueFd file(::memfd_create("fuzz", MFD_CLOEXEC | MFD_ALLOW_SEALING));
        Check(::ftruncate(file.Get(), static_cast<off_t>(bytes)) == 0 &&
                  ::fcntl(file.Get(), F_ADD_SEALS, seals) == 0,
              "there is room for a file");
        return file;
    }

    /// What has no room, or no one to read it, is lost.
    void Send(WireBytes bytes, const std::vector<int>& files) const {
        constexpr std::size_t kMostFiles = 3;
        alignas(cmsghdr) std::array<unsigned char, CMSG_SPACE(kMostFiles * sizeof(int))> control{};
        iovec part{.iov_base = bytes.data(), .iov_len = bytes.size()};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        if (!files.empty()) {
            message.msg_control = control.data();
            message.msg_controllen = CMSG_SPACE(files.size() * sizeof(int));
            cmsghdr* const rights = CMSG_FIRSTHDR(&message);
            rights->cmsg_level = SOL_SOCKET;
            rights->cmsg_type = SCM_RIGHTS;
            rights->cmsg_len = CMSG_LEN(files.size() * sizeof(int));
            std::memcpy(CMSG_DATA(rights), files.data(), files.size() * sizeof(int));
        }
        ::sendmsg(socket_, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    }

    /// The request stands where the service looks for it before it is told.
    void CheckRequest() const {
        Check(memory_.requests->request.load() == number_, "a request's number is told");
        Check(memory_.requests->waiting.load() == number_, "its answer is waited for");
        constexpr std::size_t kFlagsAt = 28;  // hints, which depend on the CPU
        WireBytes slot(frame_->size());
        zam_platform::ReadSlot(memory_.requests->slot.data(), 0, slot.data(), slot.size());
        std::fill_n(slot.begin() + kFlagsAt, sizeof(std::uint32_t), 0);
        Check(slot == *frame_, "a request stands in memory");
    }

    Input input_;
    const int socket_;
    zam_platform::ServiceMemory memory_;
    std::uint64_t number_ = 0;
    const WireBytes* frame_ = nullptr;
    unsigned wait_ = 0;
    bool hasLooked_ = false;
    bool hasAsked_ = false;
    WireBytes taken_;
};

Script* g_script = nullptr;

/// One call over the channel, in room that shows what was written.
class Call {
public:
    Call() : fixed_(kFixedBytes, kUntouched), room_(kRoom, kUntouched) {
        vd_arena_init(&arena_, room_.data(), kRoom);
    }

    /// False when the channel is of no more use.
    bool Make(zam_platform::Channel& channel, std::uint64_t number, Script& script) {
        const WireBytes message = zam_test::WireMessage(7, 0, kFixedBytes);
        const WireBytes arena(std::size_t{number} * 8, 0x33);
        const WireBytes frame =
            zam_test::WireFrame({.kind = 4, .callNumber = number}, message, arena);
        const zam_platform::OutgoingFrame request{
            .prelude = {.kind = FrameKind::Call,
                        .callNumber = number,
                        .fixedBytes = kFixedBytes,
                        .arenaBytes = static_cast<std::uint32_t>(arena.size())},
            .fixed = message.data(),
            .arena = arena.data()};
        zam_platform::IncomingFrame answer{.kind = FrameKind::Answer,
                                           .callNumber = number,
                                           .fixed = fixed_.data(),
                                           .fixedBytes = kFixedBytes,
                                           .arena = &arena_};
        script.Begin(number, frame);
        bool isAnswered = false;
        try {
            if (channel.Send(request, kNow)) {
                script.Reach();
                isAnswered = channel.Receive(answer, kNow);
            }
            // The caller may make the call elsewhere.
            Check(isAnswered || !script.HasAsked() || script.Taken() != number,
                  "no call of which a byte was taken is made twice");
        } catch (const zam_platform::PlatformError& error) {
            Check(error.what()[0] != '\0', "an error says what is wrong");
        }
        CheckWritten(isAnswered, answer.status, script);
        return isAnswered;
    }

private:
    /// An answer out of memory is what stands there, and nothing else was written.
    void CheckWritten(bool isAnswered, std::int32_t status, const Script& script) const {
        Check(arena_.used <= kRoom, "an answer's arena fits");
        Check(std::all_of(room_.begin() + static_cast<std::ptrdiff_t>(arena_.used), room_.end(),
                          [](unsigned char byte) { return byte == kUntouched; }),
              "nothing is written behind what came");
        const WireBytes& slot = script.TakenSlot();
        if (isAnswered && !slot.empty()) {
            const zam_test::WireHead head = zam_test::WireHeadAt(slot.data());
            Check(head.status == status && head.arenaBytes == arena_.used,
                  "an answer is as long as it says");
            const auto fixed = slot.begin() + kHeadBytes;
            Check(
                status != 0 || (std::equal(fixed_.begin(), fixed_.end(), fixed) &&
                                std::equal(room_.begin(),
                                           room_.begin() + static_cast<std::ptrdiff_t>(arena_.used),
                                           fixed + kFixedBytes)),
                "an answer is what stood in memory");
        }
    }

    WireBytes fixed_;
    WireBytes room_;
    vd_arena arena_{};
};

}  // namespace

void PlayClientMemory(Input input) {
    int sockets[2];
    Check(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) == 0,
          "there are descriptors for a channel");
    const UniqueFd peer(sockets[1]);
    UniqueFd own(sockets[0]);
    Script script(input, peer.Get());
    g_script = &script;
    zam_platform::ProcessPolling process{
        .leave = zam_platform::PollingLeave::Boundless(std::chrono::steady_clock::now())};
    zam_platform::SharedChannel channel(std::move(own), {},
                                        zam_platform::ClientPolling::AlwaysHot(), process);
    for (std::uint64_t number = 1; number <= kMostCalls; ++number) {
        if (!Call().Make(channel, number, script)) {
            break;
        }
    }
    g_script = nullptr;
}

}  // namespace zam_fuzz

void zam_platform::Reach(Step step) noexcept {
    if (zam_fuzz::g_script != nullptr) {
        zam_fuzz::g_script->Reach(step);
    }
}
