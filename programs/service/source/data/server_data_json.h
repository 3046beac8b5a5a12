#pragma once

#include "json_text/json_document.h"
#include "zam_connector/zam_server_data.h"

namespace zam_service {

inline constexpr char kServerDataFile[] = "server_data.json";

/// What is served about the management server.
struct ServerData {
    zam_connector::ZamServerData data;
    int policyResult = 0;    ///< what the server gives with the policy
    int settingsResult = 0;  ///< the same with the product settings

    bool operator==(const ServerData& other) const = default;
};

/// Reads data about the server; a field that is missing has its default. Throws
/// `zam_json::JsonError`.
ServerData ReadServerData(const zam_json::JsonValue& root);

}  // namespace zam_service
