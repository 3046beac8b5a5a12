#include "vocabulary/notice_kinds.h"

#include <algorithm>
#include <array>

namespace zam_vocabulary {
namespace {

/// The state stands last: data is what most people watch.
constexpr std::array kKinds = {NoticeKind::Policy,         NoticeKind::ProductSettings,
                               NoticeKind::Subscriptions,  NoticeKind::ServerData,
                               NoticeKind::ReserveCert,    NoticeKind::UpdatesStatus,
                               NoticeKind::SettingsSynced, NoticeKind::State};

/// By number.
constexpr std::array<std::string_view, kKinds.size()> kNames = {
    "state",       "policy",       "product-settings", "subscriptions",
    "server-data", "reserve-cert", "updates-status",   "settings-synced"};

}  // namespace

std::span<const NoticeKind> DataKinds() noexcept {
    return std::span(kKinds).first(kKinds.size() - 1);
}

std::vector<NoticeKind> NoticeKinds() {
    return {kKinds.begin(), kKinds.end()};
}

std::string NoticeKindName(NoticeKind kind) {
    return std::string(kNames.at(static_cast<std::size_t>(kind)));
}

std::optional<NoticeKind> ParseNoticeKind(std::string_view name) noexcept {
    const auto* const found = std::find(kNames.begin(), kNames.end(), name);
    return found == kNames.end()
               ? std::nullopt
               : std::optional<NoticeKind>(static_cast<NoticeKind>(found - kNames.begin()));
}

}  // namespace zam_vocabulary
