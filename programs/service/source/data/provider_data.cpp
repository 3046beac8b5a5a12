#include "data/provider_data.h"

#include <fmt/format.h>

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

namespace zam_service {

using zam_vocabulary::NoticeKind;
namespace {

/// Puts `next` in the place of `current`, and tells of it when it is something else.
template <typename Content, typename IsSame>
auto Publisher(Content& current, IsSame isSame, NoticeKind kind, const DataObserver& onChange) {
    return [&current, isSame, kind, onChange](Content next) {
        const bool isChange = !isSame(current, next);
        current = std::move(next);
        if (isChange) {
            onChange(kind);
        }
    };
}

constexpr auto kSameHash = [](const auto& left, const auto& right) {
    return left->hash == right->hash;
};

/// The certificate is served as it stands, whatever it holds.
ServedFile ServeReserveCert(std::function<void(std::string)> publish) {
    return {.name = kReserveCertFile,
            .lane = kReadLane,
            .read = [publish = std::move(publish)](
                        std::optional<std::string> text) -> std::function<void()> {
                std::string cert = std::move(text).value_or("");
                if (cert.size() > kReserveCertBytes) {
                    throw std::length_error(
                        fmt::format("{}: has {} bytes, more than the {} allowed", kReserveCertFile,
                                    cert.size(), kReserveCertBytes));
                }
                return [publish, cert = std::move(cert)] { publish(cert); };
            },
            .maxBytes = kMaxDataFileBytes};
}

}  // namespace

void ServeProviderFiles(DataFolder& folder, ProviderData& data, const DataObserver& onChange) {
    folder.Serve(
        ServeTree(kPolicyFile, Publisher(data.policy, kSameHash, NoticeKind::Policy, onChange)));
    folder.Serve(ServeTree(kProductSettingsFile, Publisher(data.settings, kSameHash,
                                                           NoticeKind::ProductSettings, onChange)));
    folder.Serve(ServeJson<SubscriptionsSnapshot>(
        kSubscriptionsFile, kReadLane, ReadSubscriptions,
        Publisher(
            data.subscriptions,
            [](const SubscriptionsSnapshot& left, const SubscriptionsSnapshot& right) {
                return left.message.hash == right.message.hash;
            },
            NoticeKind::Subscriptions, onChange)));
    folder.Serve(ServeJson<ServerData>(
        kServerDataFile, kReadLane, ReadServerData,
        Publisher(data.server, std::equal_to<>(), NoticeKind::ServerData, onChange)));
    folder.Serve(ServeJson<UpdatesSnapshot>(
        kUpdatesStatusFile, kReadLane, ReadUpdatesStatus,
        [publish = Publisher(data.updates, kSameHash, NoticeKind::UpdatesStatus, onChange)](
            UpdatesSnapshot read) {
            publish(std::make_shared<const UpdatesSnapshot>(std::move(read)));
        }));
    folder.Serve(ServeReserveCert(
        Publisher(data.reserveCert, std::equal_to<>(), NoticeKind::ReserveCert, onChange)));
}

}  // namespace zam_service
