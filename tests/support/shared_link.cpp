#include "support/shared_link.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <string>
#include <utility>

#include "support/test_call.h"

namespace zam_platform::testing {

ProcessPolling BoundlessPolling() {
    return {.leave = PollingLeave::Boundless(std::chrono::steady_clock::now())};
}

std::unique_ptr<Channel> NewHotChannel(UniqueFd socket, const SessionToken& token,
                                       ProcessPolling& process) {
    return std::make_unique<SharedChannel>(std::move(socket), token, ClientPolling::AlwaysHot(),
                                           process);
}

void SharedPeer::Grant() const {
    socket.Send(FrameOf({.kind = FrameKind::LookupAnswer}, Bytes{0xFF, 0xFF, 2, 0, 0, 0, 0, 0}));
    SendWithFiles(socket, MemoryAnswerFrame(), {memory.requestFile.Get(), memory.answerFile.Get()});
}

void SharedPeer::Answer(std::uint64_t number, const Bytes& frame) {
    const Bytes bytes = InSlot(frame);
    WriteSlot(Answers().slot.data(), 0, bytes.data(), std::min(bytes.size(), kAnswerSlotBytes));
    Answers().answer.store(number);
}

void SharedPeer::AwaitRequest(std::uint64_t number) const {
    Await("a request in memory", [this, number] { return Requests().request.load() == number; });
}

SharedLink::SharedLink()
    : link_([this](const SessionToken& token, const Deadline&) { return Connect(token); }) {}

void SharedLink::Prepare(Script script) {
    const std::lock_guard lock(mutex_);
    scripts_.push_back(std::move(script));
}

void SharedLink::PrepareAnswer(std::uint64_t value) {
    Prepare([value](SharedPeer& peer) {
        peer.Grant();
        peer.Answer(1, value);
    });
}

SharedPeer& SharedLink::Begin() {
    PrepareAnswer(101);
    TestCall call;
    const std::int32_t status = call.On(link_);
    if (status != kStatusOk || call.Value() != 101) {
        throw std::runtime_error("the first call failed with status " + std::to_string(status));
    }
    return At(0);
}

SharedPeer& SharedLink::At(std::size_t index) {
    const std::lock_guard lock(mutex_);
    return peers_.at(index);
}

std::size_t SharedLink::Connections() const {
    const std::lock_guard lock(mutex_);
    return peers_.size();
}

std::unique_ptr<Channel> SharedLink::Connect(const SessionToken& token) {
    const std::lock_guard lock(mutex_);
    auto [mine, peer] = MakePair();
    peers_.push_back({std::move(peer), MakeServiceMemory()});
    SharedPeer& made = peers_.back();
    made.Answers().polling.store(kPolling);
    if (scripts_.empty()) {
        made.Grant();
    } else {
        scripts_.front()(made);
        scripts_.pop_front();
    }
    return NewHotChannel(mine.Release(), token, process_);
}

}  // namespace zam_platform::testing
