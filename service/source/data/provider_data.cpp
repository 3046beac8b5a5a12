#include "data/provider_data.h"

#include <fmt/format.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

namespace zam_service {
namespace {

/// The certificate is served as it stands, whatever it holds.
ServedFile ServeReserveCert(ProviderData& data) {
    return {.name = kReserveCertFile,
            .lane = kReadLane,
            .read = [&data](std::optional<std::string> text) -> std::function<void()> {
                std::string cert = std::move(text).value_or("");
                if (cert.size() > kReserveCertBytes) {
                    throw std::length_error(
                        fmt::format("{}: has {} bytes, more than the {} allowed", kReserveCertFile,
                                    cert.size(), kReserveCertBytes));
                }
                return [&data, cert = std::move(cert)] { data.reserveCert = cert; };
            },
            .maxBytes = kMaxDataFileBytes};
}

}  // namespace

void ServeProviderFiles(DataFolder& folder, ProviderData& data) {
    folder.Serve(
        ServeTree(kPolicyFile, [&data](TreeSnapshotPtr tree) { data.policy = std::move(tree); }));
    folder.Serve(ServeTree(kProductSettingsFile,
                           [&data](TreeSnapshotPtr tree) { data.settings = std::move(tree); }));
    folder.Serve(ServeJson<SubscriptionsSnapshot>(
        kSubscriptionsFile, kReadLane, ReadSubscriptions,
        [&data](SubscriptionsSnapshot read) { data.subscriptions = std::move(read); }));
    folder.Serve(ServeJson<ServerData>(kServerDataFile, kReadLane, ReadServerData,
                                       [&data](ServerData read) { data.server = read; }));
    folder.Serve(ServeJson<UpdatesSnapshot>(
        kUpdatesStatusFile, kReadLane, ReadUpdatesStatus, [&data](UpdatesSnapshot read) {
            data.updates = std::make_shared<const UpdatesSnapshot>(std::move(read));
        }));
    folder.Serve(ServeReserveCert(data));
}

}  // namespace zam_service
