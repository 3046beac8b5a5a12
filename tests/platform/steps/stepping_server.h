#pragma once

#include <array>
#include <asio/post.hpp>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>

#include "steps/stage.h"
#include "support/test_server.h"

namespace zam_platform::testing {

/// Where a client stops that needs nothing of its service, in its order.
inline constexpr std::array kClientPlaces = {
    Step::ClientWrites,        Step::ClientWaits,      Step::ClientAsks,
    Step::ClientLooksWhoPolls, Step::ClientRings,      Step::ClientLooks,
    Step::ClientStopsWaiting,  Step::ClientLooksAgain, Step::ClientSleeps};

inline constexpr std::int64_t kPollsForEver = 86'400'000'000'000;
inline constexpr std::int64_t kPollsOnce = 1;

/// The client is held at this place, or the first one behind it that it comes to. One that is
/// there, or behind it, stays.
inline void LetClientGoTo(Step place) {
    Stage& stage = Stage::Get();
    if (const auto held = stage.HeldAt(Side::Client); held && *held >= place) {
        return;
    }
    std::uint32_t holds = 0;
    for (const Step next : kClientPlaces) {
        holds |= next >= place ? Stage::BitOf(next) : 0;
    }
    stage.Go(Side::Client, holds);
}

/// A server of the test endpoint whose loop takes its steps on the stage. `kCustom` answers with
/// the value and 1, and counts how often it was asked for the watched one.
class SteppingServer {
public:
    static constexpr std::uint64_t kWatched = 7;

    SteppingServer() {
        Stage::Get().Reset();
        server_.Endpoint().Custom([this](const Request& request, Responder responder) {
            const auto value = request.As<TestMessage>().value;
            served_ += value == kWatched ? 1U : 0U;
            TestMessage message{};
            message.value = value + 1;
            responder.Answer(message);
        });
        server_.OnLoop([] {
            Become(Side::Service);
            return 0;
        });
    }
    SteppingServer(const SteppingServer&) = delete;
    SteppingServer& operator=(const SteppingServer&) = delete;
    ~SteppingServer() { Stage::Get().Reset(); }

    TestServer& operator*() noexcept { return server_; }
    TestServer* operator->() noexcept { return &server_; }

    /// How often the watched value was served.
    std::uint64_t Served() const noexcept { return served_; }

    /// Waits until the service has done all that there is to do, and gives true; false when it is
    /// held on the way.
    bool ComesToRest() {
        // What can be read is seen once in a round of the loop, and done in the next.
        constexpr int kRounds = 4;
        const auto rounds = std::make_shared<std::atomic<int>>(0);
        NextRound(rounds, kRounds);
        AwaitSoon("the service",
                  [&rounds] { return *rounds == kRounds || Stage::Get().IsHeld(Side::Service); });
        return *rounds == kRounds;
    }

    /// Lets it go on until it comes to a place, or to rest. False when it does not come there.
    bool GoTo(std::optional<Step> place) {
        Stage::Get().Go(Side::Service, place ? Stage::BitOf(*place) : 0);
        return !ComesToRest();
    }

private:
    void NextRound(const std::shared_ptr<std::atomic<int>>& rounds, int left) {
        asio::post(server_.Get().Context(), [this, rounds, left] {
            ++*rounds;
            if (left > 1) {
                NextRound(rounds, left - 1);
            }
        });
    }

    std::atomic<std::uint64_t> served_{0};
    TestServer server_{{.spinCap = std::chrono::microseconds(50)}};
};

/// A call of the watched value. Gives `kStatusProtocol` for a wrong answer.
inline std::int32_t MakeCall(ServiceLink& link, std::uint64_t value = SteppingServer::kWatched) {
    TestCall call(kCustom, value);
    const std::int32_t status = call.Timeout(kBound).On(link);
    return status == kStatusOk && call.Value() != value + 1 ? kStatusProtocol : status;
}

}  // namespace zam_platform::testing
