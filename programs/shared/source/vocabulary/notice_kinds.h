#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// What clients are told of. Thread-safe.

namespace zam_vocabulary {

/// A kind of data whose changes are told, by its number on the wire; and the state of the link,
/// which has a notifier of its own, in which no kind has a number.
enum class NoticeKind : std::uint32_t {
    State = 0,
    Policy = 1,
    ProductSettings = 2,
    Subscriptions = 3,
    ServerData = 4,
    ReserveCert = 5,
    UpdatesStatus = 6,
    SettingsSynced = 7,  ///< settings that a client has sent are stored
};

/// The kinds of data, in the order of their numbers; of static storage.
std::span<const NoticeKind> DataKinds() noexcept;

/// The kinds of data and then the state.
std::vector<NoticeKind> NoticeKinds();

/// "product-settings".
std::string NoticeKindName(NoticeKind kind);

/// Empty when no kind has that name.
std::optional<NoticeKind> ParseNoticeKind(std::string_view name) noexcept;

}  // namespace zam_vocabulary
