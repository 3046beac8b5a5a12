#include "data/server_data_json.h"

#include <array>
#include <limits>
#include <string>
#include <string_view>

#include "data/result_code_json.h"

namespace zam_service {

using zam_json::JsonValue;

namespace {

using zam_connector::ZamDeviceStatus;

constexpr char kVersionMajor[] = "version_major";
constexpr char kVersionMinor[] = "version_minor";
constexpr char kClockOffset[] = "clock_offset_s";
constexpr char kDeviceStatus[] = "device_status";
constexpr char kOffersFiles[] = "offers_files";
constexpr char kWantsDiagnostics[] = "wants_diagnostics";
constexpr char kRequiresClientCert[] = "requires_client_cert";
constexpr char kPolicyResult[] = "policy_result";
constexpr char kSettingsResult[] = "settings_result";

struct StatusName {
    std::string_view name;
    ZamDeviceStatus status;
};

constexpr auto kStatusNames = std::to_array<StatusName>({
    {"unmanaged", ZamDeviceStatus::Unmanaged},
    {"managed", ZamDeviceStatus::Managed},
    {"quarantined", ZamDeviceStatus::Quarantined},
});

void ReadStatus(const JsonValue& root, ZamDeviceStatus& status) {
    const auto member = root.Find(kDeviceStatus);
    if (!member) {
        return;
    }
    const std::string text = member->IsText() ? member->Text() : "";
    for (const StatusName& known : kStatusNames) {
        if (known.name == text) {
            status = known.status;
            return;
        }
    }
    member->Refuse("one of unmanaged, managed, quarantined");
}

void ReadVersion(const JsonValue& root, const char* name, std::uint16_t& version) {
    if (const auto member = root.Find(name)) {
        version = static_cast<std::uint16_t>(
            member->Unsigned(0, std::numeric_limits<std::uint16_t>::max()));
    }
}

void ReadFlag(const JsonValue& root, const char* name, bool& flag) {
    if (const auto member = root.Find(name)) {
        flag = member->Boolean();
    }
}

void ReadResult(const JsonValue& root, const char* name, int& result) {
    if (const auto member = root.Find(name)) {
        result = ReadResultCode(*member);
    }
}

}  // namespace

ServerData ReadServerData(const JsonValue& root) {
    root.CheckMembers({kVersionMajor, kVersionMinor, kClockOffset, kDeviceStatus, kOffersFiles,
                       kWantsDiagnostics, kRequiresClientCert, kPolicyResult, kSettingsResult});
    ServerData server;
    ReadVersion(root, kVersionMajor, server.data.versionMajor);
    ReadVersion(root, kVersionMinor, server.data.versionMinor);
    if (const auto member = root.Find(kClockOffset)) {
        server.data.clockOffset = std::chrono::duration<std::int32_t>(
            static_cast<std::int32_t>(member->Signed(std::numeric_limits<std::int32_t>::min(),
                                                     std::numeric_limits<std::int32_t>::max())));
    }
    ReadStatus(root, server.data.deviceStatus);
    ReadFlag(root, kOffersFiles, server.data.offersFiles);
    ReadFlag(root, kWantsDiagnostics, server.data.wantsDiagnostics);
    ReadFlag(root, kRequiresClientCert, server.data.requiresClientCert);
    ReadResult(root, kPolicyResult, server.policyResult);
    ReadResult(root, kSettingsResult, server.settingsResult);
    return server;
}

}  // namespace zam_service
