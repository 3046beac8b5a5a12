#include "client/answer_head.h"

#include <fmt/format.h>

#include <cstdint>

namespace zam_platform {

PlatformError Refused(const Prelude& refusal) {
    return {static_cast<TransportStatus>(refusal.status),
            fmt::format("the service refused the connection: {}", DescribeStatus(refusal.status))};
}

Prelude ReadHead(const unsigned char* head) {
    Prelude prelude;
    const FrameFault fault = DecodePrelude(head, prelude);
    if (fault != FrameFault::None) {
        throw PlatformError(fault == FrameFault::Version ? kStatusVersion : kStatusProtocol,
                            DescribeFault(fault, head));
    }
    return prelude;
}

void CheckAnswer(const Prelude& prelude, const IncomingFrame& frame) {
    if (prelude.kind == FrameKind::Refusal && prelude.status != kStatusOk) {
        throw Refused(prelude);
    }
    if (prelude.kind != frame.kind) {
        throw PlatformError(kStatusProtocol, fmt::format("answer of frame kind {}, not {}",
                                                         static_cast<unsigned>(prelude.kind),
                                                         static_cast<unsigned>(frame.kind)));
    }
    if (prelude.callNumber != frame.callNumber) {
        throw PlatformError(kStatusProtocol, fmt::format("answer to call {}, not {}",
                                                         prelude.callNumber, frame.callNumber));
    }
    const std::uint32_t fixedBytes = prelude.status == 0 ? frame.fixedBytes : 0;
    if (prelude.fixedBytes != fixedBytes) {
        throw PlatformError(kStatusProtocol, fmt::format("answer with a fixed part of {} bytes, "
                                                         "not {}",
                                                         prelude.fixedBytes, fixedBytes));
    }
    const std::uint32_t arenaBytes =
        prelude.status == 0 && frame.arena != nullptr ? frame.arena->capacity : 0;
    if (prelude.arenaBytes > arenaBytes) {
        throw PlatformError(kStatusAnswerTooLarge,
                            fmt::format("answer with an arena of {} bytes, more than {}",
                                        prelude.arenaBytes, arenaBytes));
    }
}

}  // namespace zam_platform
