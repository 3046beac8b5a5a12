#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "data/data_folder.h"
#include "data/server_data_json.h"
#include "data/subscriptions_json.h"
#include "data/tree_file.h"
#include "data/tree_snapshot.h"
#include "data/updates_status_json.h"
#include "qx/zam_data_provider.h"
#include "vocabulary/notice_kinds.h"

namespace zam_service {

inline constexpr char kPolicyFile[] = "policy.json";
inline constexpr char kProductSettingsFile[] = "product_settings.json";
inline constexpr char kReserveCertFile[] = "reserve_cert.pem";

/// Largest answer to a request for the reserve certificate, in bytes.
inline constexpr std::size_t kReserveCertBytes =
    qx_zam_connector_ZamDataProvider_GetZamReserveCert_response_arena;

/// What the management server has delivered, in the version in force. On the loop thread only.
struct ProviderData {
    TreeSnapshotPtr policy = AbsentTree();
    TreeSnapshotPtr settings = AbsentTree();
    SubscriptionsSnapshot subscriptions;
    ServerData server;
    std::string reserveCert;
    UpdatesSnapshotPtr updates = std::make_shared<const UpdatesSnapshot>();
};

/// Told that data of a kind is other than it was. On the loop thread.
using DataObserver = std::function<void(zam_vocabulary::NoticeKind kind)>;

/// Serves the files that `data`, which must outlive the folder, is made of. A file whose content
/// means the same as before is no change. All of `server_data.json` counts as server data.
void ServeProviderFiles(DataFolder& folder, ProviderData& data, const DataObserver& onChange);

}  // namespace zam_service
