#include "vocabulary/settings_fields.h"

#include <array>
#include <limits>
#include <type_traits>
#include <utility>

namespace zam_vocabulary {
namespace {

using zam_connector::ZamConnectorSettings;
using zam_connector::ZamSeconds;

constexpr std::uint64_t kMost32 = std::numeric_limits<std::uint32_t>::max();
constexpr std::uint64_t kMost64 = std::numeric_limits<std::uint64_t>::max();

/// Accessors of one member, whatever its type.
template <auto kMember>
struct Member {
    using Type = std::remove_cvref_t<decltype(std::declval<ZamConnectorSettings>().*kMember)>;

    static SettingsValue Get(const ZamConnectorSettings& settings) {
        if constexpr (std::is_same_v<Type, bool>) {
            return settings.*kMember;
        } else if constexpr (std::is_same_v<Type, ZamSeconds>) {
            return std::uint64_t{(settings.*kMember).count()};
        } else {
            return std::uint64_t{settings.*kMember};
        }
    }

    static void Set(ZamConnectorSettings& settings, SettingsValue value) {
        if constexpr (std::is_same_v<Type, bool>) {
            settings.*kMember = std::get<bool>(value);
        } else if constexpr (std::is_same_v<Type, ZamSeconds>) {
            settings.*kMember = Type(static_cast<std::uint32_t>(std::get<std::uint64_t>(value)));
        } else {
            settings.*kMember = static_cast<Type>(std::get<std::uint64_t>(value));
        }
    }
};

template <auto kMember>
constexpr SettingsField Number(const char* name, const char* unit, const char* whenZero,
                               std::uint64_t most) {
    return {name, unit, whenZero, most, &Member<kMember>::Get, &Member<kMember>::Set};
}

template <auto kMember>
constexpr SettingsField Flag(const char* name) {
    return {name, "", "", 1, &Member<kMember>::Get, &Member<kMember>::Set};
}

using Settings = ZamConnectorSettings;
constexpr std::array kFields{
    Number<&Settings::syncPeriod>("sync_period_s", "s", "only on demand", kMost32),
    Number<&Settings::heartbeatPeriod>("heartbeat_period_s", "s", "none", kMost32),
    Number<&Settings::reconnectDelayMin>(kReconnectDelayMin, "s", "", kMost32),
    Number<&Settings::reconnectDelayMax>(kReconnectDelayMax, "s", "", kMost32),
    Number<&Settings::uploadLimitBytesPerSecond>("upload_limit_bytes_per_second", "bytes/s",
                                                 "unlimited", kMost64),
    Number<&Settings::downloadLimitBytesPerSecond>("download_limit_bytes_per_second", "bytes/s",
                                                   "unlimited", kMost64),
    Number<&Settings::maxFileSizeBytes>("max_file_size_bytes", "bytes", "unlimited", kMost64),
    Number<&Settings::eventQueueLimit>("event_queue_limit", "events", "none are kept", kMost32),
    Flag<&Settings::compressTraffic>("compress_traffic"),
    Flag<&Settings::allowMeteredNetwork>("allow_metered_network"),
    Flag<&Settings::sendDiagnostics>("send_diagnostics"),
};

}  // namespace

std::span<const SettingsField> SettingsFields() noexcept {
    return kFields;
}

bool IsFlag(const SettingsField& field) {
    return std::holds_alternative<bool>(field.get(ZamConnectorSettings{}));
}

}  // namespace zam_vocabulary
