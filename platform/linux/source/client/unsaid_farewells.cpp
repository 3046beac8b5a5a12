#include "client/unsaid_farewells.h"

#include <cstring>
#include <new>

#include "client/service_link.h"
#include "zam_platform/posix_error.h"

namespace zam_platform {

UnsaidFarewells UnsaidFarewells::Of(const LinkCall& call) noexcept {
    UnsaidFarewells one;
    if (call.request->fixedSize > kMaxFixedBytes ||
        (call.requestArena != nullptr && call.requestArena->used != 0) ||
        call.responseArena != nullptr) {
        return one;
    }
    try {
        std::list<Farewell> made(1);
        Farewell& farewell = made.front();
        farewell.request.resize((call.request->fixedSize + sizeof(std::uint64_t) - 1) /
                                sizeof(std::uint64_t));
        farewell.requestBytes = call.request->fixedSize;
        farewell.response.resize(call.response->fixedSize);
        std::memcpy(farewell.request.data(), call.request, call.request->fixedSize);
        one.farewells_.swap(made);
    } catch (const std::bad_alloc&) {
        // What it would have ended ends with the session.
    }
    return one;
}

void UnsaidFarewells::Append(UnsaidFarewells younger) noexcept {
    farewells_.splice(farewells_.end(), younger.farewells_);
    DropBeyondMost();
}

void UnsaidFarewells::Prepend(UnsaidFarewells older) noexcept {
    farewells_.splice(farewells_.begin(), older.farewells_);
    DropBeyondMost();
}

void UnsaidFarewells::DropBeyondMost() noexcept {
    while (farewells_.size() > kMaxUnsaidFarewells) {
        farewells_.pop_front();
    }
}

void UnsaidFarewells::SayFirst(Channel& channel, std::uint64_t number, const Deadline& deadline) {
    Farewell& farewell = farewells_.front();
    const OutgoingFrame frame{.prelude = {.kind = FrameKind::Call,
                                          .callNumber = number,
                                          .fixedBytes = farewell.requestBytes},
                              .fixed = farewell.request.data()};
    IncomingFrame answer{.kind = FrameKind::Answer,
                         .callNumber = number,
                         .fixed = farewell.response.data(),
                         .fixedBytes = static_cast<std::uint32_t>(farewell.response.size())};
    if (!channel.Send(frame, deadline) || !channel.Receive(answer, deadline)) {
        throw PlatformError(kStatusBroken, "the service took no byte of a farewell");
    }
}

}  // namespace zam_platform
