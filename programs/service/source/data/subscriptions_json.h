#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "data/content_hash.h"
#include "json_text/json_document.h"
#include "qx/zam_data_provider.h"
#include "qx/zam_types.h"
#include "zam_connector/zam_subscriptions.h"

namespace zam_service {

inline constexpr char kSubscriptionsFile[] = "subscriptions.json";

/// Largest answer to a request for the subscriptions, in bytes of its arena.
inline constexpr std::uint32_t kSubscriptionsBytes =
    qx_zam_connector_ZamDataProvider_GetSubscriptions_response_arena;

/// Subscriptions as they go into an answer; without a file, none.
struct SubscriptionsSnapshot {
    qx_zam_connector_ZamTypes_ZamSubscriptionsWithHash message{};  ///< with the hash
    std::vector<unsigned char> arena;  ///< at most `kSubscriptionsBytes`
};

/// Reads subscriptions. Throws `zam_json::JsonError`, also when they do not fit into an answer.
SubscriptionsSnapshot ReadSubscriptions(const zam_json::JsonValue& root);

/// The hash of subscriptions, whatever the order in which they stand.
std::uint64_t HashOf(const zam_connector::ZamSubscriptions& subscriptions);

}  // namespace zam_service
