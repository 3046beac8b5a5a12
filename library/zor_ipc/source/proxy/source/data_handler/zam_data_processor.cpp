#include "data_handler/zam_data_processor.h"

#include <cstdint>
#include <string>
#include <utility>

#include "common/log.h"
#include "qel/exception.h"

namespace zam_connector::proxy {
namespace {

constexpr char kSourceFile[] = "zam_data_processor";

constexpr common::LogSite Site(int line = __builtin_LINE()) noexcept {
    return common::Here(kSourceFile, "ProcessData", line);
}

/// What changed, as the service numbers it.
enum class Kind : unsigned int {
    Policy = 1,
    ProductSettings = 2,
    Subscriptions = 3,
    ServerData = 4,
    ReserveCert = 5,
    UpdatesStatus = 6,
    SettingsSynced = 7,
};

/// Fetches a value and has the observers told, when there are any.
template <typename Value, typename Fetched>
int Process(IZamDataManager& manager, bool (IZamDataManager::*exists)() const,
            IZamDataProvider& provider, int (IZamDataProvider::*fetch)(Fetched&) noexcept,
            void (IZamDataManager::*notify)(const Value&), fmt::format_string<const int&> failure) {
    if (!(manager.*exists)()) {
        return qel::kNoError;
    }
    Fetched value{};
    const int result = (provider.*fetch)(value);
    if (result < 0) {
        common::Failure(Site(), failure, result);
        return result;
    }
    (manager.*notify)(value);
    return qel::kNoError;
}

}  // namespace

ZamDataProcessor::ZamDataProcessor(std::weak_ptr<IZamDataManager> manager,
                                   std::shared_ptr<IZamDataProvider> dataProvider)
    : manager_(std::move(manager)), dataProvider_(std::move(dataProvider)) {
    if (!dataProvider_) {
        throw qel::CheckFailedException(kSourceFile, __LINE__);
    }
}

int ZamDataProcessor::ProcessData(unsigned int kind) {
    // Owned to the end: who drops the subscriber meanwhile waits for no observer, and its end is
    // left to this thread.
    const std::shared_ptr<IZamDataManager> manager = manager_.lock();
    if (!manager) {
        return common::Failure(Site(), "ZamDataProcessor: dataManger weak ptr is expired!");
    }
    using Manager = IZamDataManager;
    using Provider = IZamDataProvider;
    Provider& provider = *dataProvider_;
    switch (static_cast<Kind>(kind)) {
        case Kind::Policy:
            return Process(*manager, &Manager::IsPolicySubscriberExist, provider,
                           &Provider::GetPolicy, &Manager::NotifyPolicy,
                           "ZamDataProcessor: policy wasn't gotten - error {}!");
        case Kind::ProductSettings:
            return Process(*manager, &Manager::IsSettingsSubscriberExist, provider,
                           &Provider::GetProductSettings, &Manager::NotifySettings,
                           "ZamDataProcessor: settings wasn't gotten - error {}!");
        case Kind::Subscriptions:
            return Process(*manager, &Manager::IsSubscriptionsSubscriberExist, provider,
                           &Provider::GetSubscriptions, &Manager::NotifySubscriptions,
                           "ZamDataProcessor: subscriptions wasn't gotten - error {}!");
        case Kind::ServerData:
            return Process(*manager, &Manager::IsZamServerDataSubscriberExist, provider,
                           &Provider::GetZamServerData, &Manager::NotifyZamServerData,
                           "ZamDataProcessor: ZamServerData wasn't gotten - error {}!");
        case Kind::ReserveCert:
            return Process(*manager, &Manager::IsReserveCertSubscriberExist, provider,
                           &Provider::GetZamReserveCert, &Manager::NotifyReserveCert,
                           "ZamDataProcessor: failed to get ZamCertificate, error {}!");
        case Kind::UpdatesStatus:
            return Process(*manager, &Manager::IsZamUpdatesStatusExist, provider,
                           &Provider::GetZamUpdatesStatus, &Manager::NotifyZamUpdatesStatus,
                           "ZamDataProcessor: failed to get ZamUpdatesStatus, error {}!");
        case Kind::SettingsSynced:
            return Process(*manager, &Manager::IsSettingsSyncedSubscriberExist, provider,
                           &Provider::GetSyncedSettingsHash, &Manager::NotifySettingsSynced,
                           "ZamDataProcessor: failed to get GetSyncedSettingsHash, error {}!");
    }
    return qel::kNoError;  // a kind that this library does not know
}

ZamDataProcessorFactory::ZamDataProcessorFactory(std::shared_ptr<IZamDataProvider> dataProvider)
    : dataProvider_(std::move(dataProvider)) {
    if (!dataProvider_) {
        throw qel::CheckFailedException(kSourceFile, __LINE__);
    }
}

std::unique_ptr<IDataProcessor<unsigned int>> ZamDataProcessorFactory::CreateDataProcessor(
    std::weak_ptr<IZamDataManager> manager) {
    return std::make_unique<ZamDataProcessor>(std::move(manager), dataProvider_);
}

}  // namespace zam_connector::proxy
