#include "notices/notices.h"

#include "common/connection_casts.h"

namespace zam_service {

using zam_connector::ZamConnectorState;

namespace {

constexpr NoticeRules kDataRules{.sort = "data", .coalesces = true};
constexpr NoticeRules kStateRules{.sort = "connection state", .coalesces = false};

std::uint32_t NumberOf(ZamConnectorState state) {
    return static_cast<std::uint32_t>(zam_connector::common::CastToVd(state));
}

std::vector<std::uint32_t> AllKinds() {
    std::vector<std::uint32_t> kinds;
    for (const zam_vocabulary::NoticeKind kind : zam_vocabulary::DataKinds()) {
        kinds.push_back(static_cast<std::uint32_t>(kind));
    }
    return kinds;
}

}  // namespace

Notices::Notices(ConnectorLink& link)
    : data_(kDataRules, NewNoticeEpoch(), AllKinds),
      states_(kStateRules, NewNoticeEpoch(),
              [&link] { return std::vector<std::uint32_t>{NumberOf(link.State())}; }) {
    link.OnState([this](ZamConnectorState state) { states_.Tell(NumberOf(state)); });
}

void Notices::EndSession(const zam_platform::SessionToken& client) {
    data_.EndSession(client);
    states_.EndSession(client);
}

}  // namespace zam_service
