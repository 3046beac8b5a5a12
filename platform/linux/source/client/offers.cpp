#include "client/offers.h"

#include <cstring>

#include "zam_platform/transport_status.h"

namespace zam_platform {

bool AskForOffers(Channel& channel, std::uint64_t number, const Deadline& deadline) {
    LookupResult result{};
    const OutgoingFrame lookup{.prelude = {.kind = FrameKind::Lookup,
                                           .callNumber = number,
                                           .fixedBytes = kNoEndpoint.size()},
                               .fixed = kNoEndpoint.data()};
    IncomingFrame answer{.kind = FrameKind::LookupAnswer,
                         .callNumber = number,
                         .fixed = &result,
                         .fixedBytes = sizeof(result)};
    if (!channel.Send(lookup, deadline) || !channel.Receive(answer, deadline)) {
        return false;
    }
    channel.NoteOffers(OffersIn(answer));
    return true;
}

std::uint16_t OffersIn(const IncomingFrame& lookupAnswer) noexcept {
    LookupResult result{};
    if (lookupAnswer.status == kStatusOk) {
        std::memcpy(&result, lookupAnswer.fixed, sizeof(result));
    }
    return result.offers;
}

}  // namespace zam_platform
