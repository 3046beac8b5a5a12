#include "support/memory_peer.h"

#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>

#include "support/require.h"

namespace zam_platform::testing {
namespace {

constexpr std::size_t kMostFiles = 8;

Bytes Padded(Bytes bytes) {
    bytes.resize(SlotRoom(bytes.size()));
    return bytes;
}

}  // namespace

FrameWithFiles ReadFrameWithFiles(const RawSocket& socket) {
    Await("a frame", [&socket] { return socket.HasInput(); });
    FrameWithFiles got;
    Bytes head(kPreludeBytes);
    alignas(cmsghdr) std::array<unsigned char, CMSG_SPACE(kMostFiles * sizeof(int))> control{};
    iovec part{.iov_base = head.data(), .iov_len = head.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t bytes = ::recvmsg(socket.Get(), &message, MSG_CMSG_CLOEXEC | MSG_DONTWAIT);
    zam_test::Require(bytes >= 0, "recvmsg");
    if (static_cast<std::size_t>(bytes) != head.size() ||
        DecodePrelude(head.data(), got.frame.prelude) != FrameFault::None) {
        throw std::runtime_error("no frame came with files");
    }
    for (cmsghdr* rights = CMSG_FIRSTHDR(&message); rights != nullptr;
         rights = CMSG_NXTHDR(&message, rights)) {
        const std::size_t count = (rights->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t index = 0; index < count; ++index) {
            int file = -1;
            std::memcpy(&file, CMSG_DATA(rights) + index * sizeof(int), sizeof(int));
            got.files.emplace_back(file);
        }
    }
    got.frame.fixed = socket.Read(got.frame.prelude.fixedBytes);
    got.frame.arena = socket.Read(got.frame.prelude.arenaBytes);
    return got;
}

void SendWithFiles(const RawSocket& socket, const Bytes& bytes, const std::vector<int>& files) {
    alignas(cmsghdr) std::array<unsigned char, CMSG_SPACE(kMostFiles * sizeof(int))> control{};
    Bytes copy = bytes;
    iovec part{.iov_base = copy.data(), .iov_len = copy.size()};
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
    zam_test::Require(
        ::sendmsg(socket.Get(), &message, MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size()),
        "sendmsg");
}

std::size_t SharedMappings() {
    std::ifstream maps("/proc/self/maps");
    std::size_t found = 0;
    for (std::string line; std::getline(maps, line);) {
        found += line.find("memfd:zam_") != std::string::npos ? 1U : 0U;
    }
    return found;
}

Bytes LookFrame(std::uint64_t number) {
    return FrameOf({.kind = FrameKind::Look, .callNumber = number});
}

Bytes MemoryRequestFrame(std::uint64_t number, CallHints hints) {
    return FrameOf(
        {.kind = FrameKind::MemoryRequest, .callNumber = number, .flags = hints.Flags()});
}

Bytes MemoryAnswerFrame(std::uint64_t number, MemoryGrant grant) {
    Bytes bytes(sizeof(grant));
    std::memcpy(bytes.data(), &grant, sizeof(grant));
    return FrameOf({.kind = FrameKind::MemoryAnswer, .callNumber = number}, bytes);
}

Bytes InSlot(const Bytes& frame) {
    Prelude prelude;
    if (frame.size() < kPreludeBytes || DecodePrelude(frame.data(), prelude) != FrameFault::None) {
        return frame;
    }
    const std::size_t behind = std::min(frame.size(), kPreludeBytes + prelude.fixedBytes);
    return Padded(Head(frame, behind)) + Padded(Tail(frame, behind));
}

Frame FrameIn(const SharedWord* slot, std::size_t slotBytes) {
    Frame frame;
    Bytes head(kPreludeBytes);
    std::size_t offset = ReadSlot(slot, 0, head.data(), head.size());
    const FrameFault fault = DecodePrelude(head.data(), frame.prelude);
    if (fault != FrameFault::None) {
        throw std::runtime_error(DescribeFault(fault, head.data()));
    }
    frame.fixed.resize(frame.prelude.fixedBytes);
    frame.arena.resize(frame.prelude.arenaBytes);
    if (SlotRoom(frame.prelude) > slotBytes) {
        throw std::runtime_error("the frame exceeds its slot");
    }
    offset = ReadSlot(slot, offset, frame.fixed.data(), frame.fixed.size());
    ReadSlot(slot, offset, frame.arena.data(), frame.arena.size());
    return frame;
}

MemoryPeer::MemoryPeer(RawSocket socket, std::size_t touched) : socket_(std::move(socket)) {
    socket_.Send(MemoryRequestFrame());
    FrameWithFiles grant = ReadFrameWithFiles(socket_);
    if (grant.files.size() != 2) {
        throw std::runtime_error(fmt::format("status {} and {} files, no shared memory",
                                             grant.frame.prelude.status, grant.files.size()));
    }
    files_ = std::move(grant.files);
    if (touched == kAnswerFileBytes) {
        memory_ = MapClientMemory(files_[0], files_[1]);
        return;
    }
    const auto map = [this](std::size_t file, std::size_t bytes, int protection) {
        void* const pages =
            ::mmap(nullptr, bytes, protection, MAP_SHARED, files_.at(file).Get(), 0);
        zam_test::Require(pages != MAP_FAILED, "mmap");
        return pages;
    };
    memory_.requests = {
        static_cast<RequestPages*>(map(0, kRequestFileBytes, PROT_READ | PROT_WRITE)),
        kRequestFileBytes};
    memory_.answers = {static_cast<const AnswerPages*>(map(1, kAnswerFileBytes, PROT_READ)),
                       kAnswerFileBytes};
    Touch(touched);
}

void MemoryPeer::Touch(std::size_t bytes) const {
    const auto* const first = reinterpret_cast<const volatile unsigned char*>(&Answers());
    for (std::size_t offset = 0; offset < bytes; offset += kSharedPage) {
        static_cast<void>(first[offset]);
    }
}

void MemoryPeer::Put(std::uint64_t number, const Bytes& frame) {
    const Bytes bytes = InSlot(frame);
    WriteSlot(Requests().slot.data(), 0, bytes.data(), std::min(bytes.size(), kRequestSlotBytes));
    Requests().waiting.store(number);
    Requests().request.store(number);
}

Frame MemoryPeer::Call(std::uint64_t number, const Bytes& frame) {
    Put(number, frame);
    Look(number);
    return AwaitAnswer(number);
}

Frame MemoryPeer::AwaitAnswer(std::uint64_t number) const {
    Await("an answer in memory",
          [this, number] { return memory_.answers->answer.load() == number; });
    return FrameIn(memory_.answers->slot);
}

}  // namespace zam_platform::testing
