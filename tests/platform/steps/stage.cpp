#include "steps/stage.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>

#include <algorithm>
#include <chrono>
#include <new>

#include "common/polling_policy.h"
#include "server/user_allowances.h"
#include "shared/cpu_share.h"
#include "shared/preemption.h"
#include "support/background.h"
#include "support/require.h"

namespace zam_platform::testing {
namespace {

constexpr auto kRelaxed = std::memory_order_relaxed;

thread_local Side g_side = Side::Client;
thread_local bool g_passesBy = false;

}  // namespace

void Become(Side side) noexcept {
    g_side = side;
}

void PassBy() noexcept {
    g_passesBy = true;
}

Stage& Stage::Get() {
    static Stage* const stage = [] {
        void* const address = ::mmap(nullptr, sizeof(Stage), PROT_READ | PROT_WRITE,
                                     MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        zam_test::Require(address != MAP_FAILED, "mmap");
        return new (address) Stage;
    }();
    return *stage;
}

void Stage::Reset() noexcept {
    for (const Side side : {Side::Client, Side::Service}) {
        Preempt(side, false);
        Go(side);
    }
    for (auto& count : counts_) {
        count.store(0, kRelaxed);
    }
    pollFor_.store(0, kRelaxed);
    waitsForEver_.store(true, kRelaxed);
    ForgetHoles();
}

void Stage::Go(Side side, std::uint32_t holds) noexcept {
    Gate& gate = Of(side);
    const std::uint64_t number = gate.order.load(kRelaxed) >> kNumberShift;
    gate.order.store((number + 1) << kNumberShift | holds, kRelaxed);
}

std::optional<Step> Stage::HeldAt(Side side) const noexcept {
    const Gate& gate = Of(side);
    const std::uint64_t heldAt = gate.heldAt.load(kRelaxed);
    if (heldAt >> kNumberShift != gate.order.load(kRelaxed) >> kNumberShift) {
        return std::nullopt;
    }
    return static_cast<Step>(heldAt);
}

std::uint32_t Stage::Count(Step step) const noexcept {
    return counts_[static_cast<std::size_t>(step)].load(kRelaxed);
}

void Stage::Preempt(Side side, bool isPreempted) noexcept {
    Of(side).isPreempted.store(isPreempted, kRelaxed);
}

bool Stage::IsPreempted(Side side) const noexcept {
    return Of(side).isPreempted.load(kRelaxed);
}

std::int64_t Stage::LongestHole() const noexcept {
    return longestHole_.load(kRelaxed);
}

void Stage::ForgetHoles() noexcept {
    longestHole_.store(0, kRelaxed);
}

void Stage::NoteHole(std::int64_t nanoseconds) noexcept {
    // From the service's thread alone.
    longestHole_.store(std::max(LongestHole(), nanoseconds), kRelaxed);
}

void Stage::OnStep(Step step) noexcept {
    counts_[static_cast<std::size_t>(step)].fetch_add(1, kRelaxed);
    Gate& gate = Of(SideOf(step));
    const std::uint64_t order = gate.order.load(kRelaxed);
    if ((order & BitOf(step)) == 0 || g_passesBy) {
        return;
    }
    const std::uint64_t number = order >> kNumberShift << kNumberShift;
    gate.heldAt.store(number | static_cast<std::uint64_t>(step), kRelaxed);
    while (gate.order.load(kRelaxed) == order) {
        ::sched_yield();
    }
}

bool AwaitSoon(const char* what, const std::function<bool()>& condition) {
    constexpr int kTries = 10'000;
    for (int tries = 0; tries < kTries; ++tries) {
        if (condition()) {
            return true;
        }
        ::sched_yield();
    }
    return Await(what, condition);
}

}  // namespace zam_platform::testing

// -- What the product has of these stays out of the executable.

namespace zam_platform {

using testing::Side;
using testing::Stage;

namespace {

constexpr Nanoseconds kForEver = std::chrono::hours(24);

}  // namespace

void Reach(Step step) noexcept {
    Stage::Get().OnStep(step);
}

bool HasCpuForPolling(TimePoint /*now*/) noexcept {
    return true;
}

bool HasBeenPreempted(Nanoseconds hole) noexcept {
    if (testing::g_side == Side::Service) {
        Stage::Get().NoteHole(hole.count());
    }
    return Stage::Get().IsPreempted(testing::g_side);
}

std::uint8_t EncodeGap(Nanoseconds /*gap*/) noexcept {
    return 0;
}

Nanoseconds DecodeGap(std::uint8_t /*code*/) noexcept {
    return Nanoseconds(0);
}

PollingLeave::PollingLeave(Nanoseconds cap, Nanoseconds socketRoundTrip, TimePoint now) noexcept
    : wishedCap_(cap),
      greatestBudget_(0),
      longestHole_(-1),
      socketRoundTrip_(socketRoundTrip),
      cap_(cap),
      isFullAt_(now),
      pause_(Nanoseconds(0)),
      pauseEnd_(now) {}

PollingLeave PollingLeave::Boundless(TimePoint now) noexcept {
    return {kForEver, kForEver, now};
}

void PollingLeave::NoteRoundTrip(Nanoseconds /*roundTrip*/) noexcept {}

bool PollingLeave::Allows(TimePoint /*now*/) const noexcept {
    return true;
}

void PollingLeave::EndPoll(TimePoint /*now*/, Nanoseconds /*polled*/, bool /*hit*/) noexcept {}

bool PollingLeave::NoticeHole(TimePoint /*now*/, Nanoseconds /*hole*/) noexcept {
    return true;
}

Nanoseconds PollingLeave::BreakEven() const noexcept {
    return kForEver;
}

Nanoseconds ServicePolling::AfterAnswer(const PollingLeave& /*leave*/, TimePoint /*now*/,
                                        Nanoseconds /*gap*/, bool otherCpu,
                                        bool /*sleeps*/) noexcept {
    return otherCpu ? Nanoseconds(Stage::Get().PollFor()) : Nanoseconds(0);
}

bool ServicePolling::EndPoll(bool /*hit*/) noexcept {
    return false;
}

ClientPolling ClientPolling::AlwaysHot() noexcept {
    ClientPolling polling;
    polling.isHot_ = true;
    return polling;
}

void ClientPolling::Begin(TimePoint /*now*/) noexcept {
    isHot_ = true;
}

void ClientPolling::End(TimePoint /*now*/, bool /*throughMemory*/) noexcept {}

Nanoseconds ClientPolling::SpinLimit(Nanoseconds /*cap*/) const noexcept {
    return Stage::Get().WaitsForEver() ? kForEver : Nanoseconds(0);
}

void MemoryRequestBackoff::Refused(TimePoint /*now*/) noexcept {
    wait_.Set(std::chrono::seconds(0));
}

void MemoryRequestBackoff::Lost(TimePoint now) noexcept {
    Refused(now);
}

bool UserAllowances::Has(uid_t /*user*/, Time /*now*/, int /*pieces*/) const noexcept {
    return true;
}

void UserAllowances::Charge(uid_t /*user*/, Time /*now*/, int /*pieces*/) noexcept {}

bool UserAllowances::Take(uid_t /*user*/, Time /*now*/) noexcept {
    return true;
}

}  // namespace zam_platform

/// Both sides run on CPUs of their own, whatever the machine has.
extern "C" int sched_getcpu() noexcept {
    return zam_platform::testing::g_side == zam_platform::testing::Side::Service ? 0 : 1;
}
