#pragma once

#include <cstdint>

namespace zam_service {

/// Kinds of data whose changes are told, by their numbers on the wire.
enum class DataKind : std::uint32_t {
    Policy = 1,
    ProductSettings = 2,
    Subscriptions = 3,
    ServerData = 4,
    ReserveCert = 5,
    UpdatesStatus = 6,
    SettingsSynced = 7,  ///< settings that a client has sent are stored
};

inline constexpr std::uint32_t kFirstDataKind = static_cast<std::uint32_t>(DataKind::Policy);
inline constexpr std::uint32_t kLastDataKind = static_cast<std::uint32_t>(DataKind::SettingsSynced);

}  // namespace zam_service
