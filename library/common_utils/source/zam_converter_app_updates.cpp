#include "zam_connector/app_updates.h"
#include "zam_connector/zam_converter.h"
#include "zam_converter_guard.h"
#include "zam_converter_lists.h"
#include "zam_converter_tree.h"

namespace zam_connector::zam_converter {
namespace {

constexpr char kSourceFile[] = "zam_converter_app_updates";
constexpr char kUpdatesKey[] = "static_info";
constexpr char kStatusesKey[] = "dynamic_info";

/// The vector under a key that has to be there, as a node.
const zuv::TValue& GetListNode(const zuv::TValue& node, const char* key) {
    const zuv::TValue& list = GetTreeNode(node, key);
    static_cast<void>(list.Get<zuv::Vector>());
    return list;
}

/// A map from the hexadecimal forms of the numbers to what `convert` gives for the records. Nothing
/// as soon as it gives nothing.
template <typename Record, typename Convert>
std::optional<zuv::TValue> ConvertIdentities(
    const std::unordered_map<unsigned long, const Record>& records, Convert&& convert) {
    zuv::Map trees;
    for (const auto& [number, record] : records) {
        std::optional<zuv::TValue> tree = convert(record);
        if (!tree) {
            return std::nullopt;
        }
        trees.emplace(ConvertZamHashToHex(number).value(), *std::move(tree));
    }
    return zuv::TValue(std::move(trees));
}

zuv::TValue MakeTree(zuv::TValue&& updates, zuv::TValue&& statuses) {
    zuv::Map map;
    map.emplace(kUpdatesKey, std::move(updates));
    map.emplace(kStatusesKey, std::move(statuses));
    return {std::move(map)};
}

}  // namespace

std::optional<zuv::TValue> ConvertAppUpdates(const AppUpdates& updates) noexcept {
    const common::LogSite site = common::Here(kSourceFile, "ConvertAppUpdates");
    return Guarded(site, "ConvertAppUpdates failed with exception [{} : {}]",
                   [&]() -> std::optional<zuv::TValue> {
                       constexpr char kFailure[] = "ConvertAppUpdates: Convert updates failed";
                       std::optional<zuv::TValue> updateTrees =
                           ConvertList(updates.updates, ConvertUpdateInfo);
                       if (!updateTrees) {
                           return LogFailed(site, kFailure);
                       }
                       std::optional<zuv::TValue> statusTrees =
                           ConvertList(updates.statuses, ConvertUpdateStatusInfo);
                       if (!statusTrees) {
                           return LogFailed(site, kFailure);
                       }
                       return MakeTree(*std::move(updateTrees), *std::move(statusTrees));
                   });
}

std::optional<AppUpdates> ParseAppUpdates(const zuv::TValue& node) noexcept {
    const common::LogSite site = common::Here(kSourceFile, "ParseAppUpdates");
    return Guarded(
        site, "ParseAppUpdates failed with exception [{} : {}]",
        [&]() -> std::optional<AppUpdates> {
            auto updates = ParseList(GetListNode(node, kUpdatesKey), ParseUpdateInfo);
            if (!updates) {
                return LogFailed(site, "ParseAppUpdates: Could not parse updateInfoContainer");
            }
            auto statuses = ParseList(GetListNode(node, kStatusesKey), ParseUpdateStatusInfo);
            if (!statuses) {
                return LogFailed(site, "ParseAppUpdates: Could not parse updateStatusContainer");
            }
            return AppUpdates{*std::move(updates), *std::move(statuses)};
        });
}

std::optional<zuv::TValue> ConvertAppUpdatesIdentityInfo(
    const std::unordered_map<unsigned long, const UpdateInfo>& updates,
    const std::unordered_map<unsigned long, const UpdateStatusInfo>& statuses) noexcept {
    const common::LogSite site = common::Here(kSourceFile, "ConvertAppUpdatesIdentityInfo");
    // The shorter name in the record of an exception is the contract's.
    return Guarded(site, "ConvertUpdatesIdentityInfo failed with exception [{} : {}]",
                   [&]() -> std::optional<zuv::TValue> {
                       std::optional<zuv::TValue> updateTrees =
                           ConvertIdentities(updates, ConvertUpdateIdentityInfo);
                       if (!updateTrees) {
                           return LogFailed(site, "Could not convert updateInfo to ZAMParam");
                       }
                       std::optional<zuv::TValue> statusTrees =
                           ConvertIdentities(statuses, ConvertUpdateStatusIdentityInfo);
                       if (!statusTrees) {
                           return LogFailed(site, "Could not convert updateStatusInfo to ZAMParam");
                       }
                       return MakeTree(*std::move(updateTrees), *std::move(statusTrees));
                   });
}

}  // namespace zam_connector::zam_converter
