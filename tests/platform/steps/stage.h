#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>

#include "shared/step.h"

/// The stage on which both sides of the fast channel take their steps: where they stop, and what
/// they are told in the place of the clock, the scheduler and the policy, none of which takes part
/// in the executable that this belongs to. So nothing depends on time or on the number of CPUs.

namespace zam_platform::testing {

enum class Side : std::size_t { Client, Service };

/// Says which side the calling thread is. Threads are clients that say nothing.
void Become(Side side) noexcept;

/// The calling thread is held nowhere from now on: for a child whose parent is held.
void PassBy() noexcept;

/// Lies in memory that forked processes share. Loads and stores are relaxed, so that no order
/// between the two sides comes from here.
class Stage {
public:
    static Stage& Get();

    /// Forgets everything; nobody is held any more.
    void Reset() noexcept;

    /// The side is held wherever it reaches one of these steps (a sum of `BitOf`), and goes on
    /// from where it is held. From one thread at a time.
    void Go(Side side, std::uint32_t holds = 0) noexcept;

    static std::uint32_t BitOf(Step step) noexcept { return 1U << static_cast<unsigned>(step); }

    std::optional<Step> HeldAt(Side side) const noexcept;
    bool IsHeld(Side side) const noexcept { return HeldAt(side).has_value(); }

    /// How often the step was reached.
    std::uint32_t Count(Step step) const noexcept;

    /// Whether the service polls behind its next answers, and until when: 0 not at all; 1 ns is
    /// over when it first looks at the clock; else for ever.
    void PollFor(std::int64_t nanoseconds) noexcept { pollFor_ = nanoseconds; }
    std::int64_t PollFor() const noexcept { return pollFor_; }

    /// The client looks once for an answer, or until it comes.
    void WaitForEver(bool isForEver) noexcept { waitsForEver_ = isForEver; }
    bool WaitsForEver() const noexcept { return waitsForEver_; }

    /// Whether somebody else needs the side's CPU.
    void Preempt(Side side, bool isPreempted) noexcept;
    bool IsPreempted(Side side) const noexcept;

    /// The longest time between two looks of the service at the clock, while it polls, since this
    /// was forgotten.
    std::int64_t LongestHole() const noexcept;
    void ForgetHoles() noexcept;
    void NoteHole(std::int64_t nanoseconds) noexcept;

    void OnStep(Step step) noexcept;

private:
    static constexpr unsigned kNumberShift = 32;
    static constexpr std::uint64_t kOneOrder = std::uint64_t{1} << kNumberShift;
    static constexpr std::size_t kSteps = static_cast<std::size_t>(Step::ServiceRings) + 1;

    struct Gate {
        std::atomic<std::uint64_t> order{kOneOrder};  ///< its number, above the steps to hold at
        std::atomic<std::uint64_t> heldAt{0};         ///< number of the order, above the step
        std::atomic<bool> isPreempted{false};
    };

    static Side SideOf(Step step) noexcept {
        return step < Step::ServiceTells ? Side::Client : Side::Service;
    }
    Gate& Of(Side side) noexcept { return gates_[static_cast<std::size_t>(side)]; }
    const Gate& Of(Side side) const noexcept { return gates_[static_cast<std::size_t>(side)]; }

    std::array<Gate, 2> gates_;
    std::array<std::atomic<std::uint32_t>, kSteps> counts_{};
    std::atomic<std::int64_t> pollFor_{0};
    std::atomic<bool> waitsForEver_{true};
    std::atomic<std::int64_t> longestHole_{0};  ///< in nanoseconds
};

/// Like `Await`, for what another thread or process does in a moment: asks without sleeping.
bool AwaitSoon(const char* what, const std::function<bool()>& condition);

}  // namespace zam_platform::testing
