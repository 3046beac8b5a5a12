// What the transport came to in a thread's last operation, as programs ask for it.

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "common/connection_casts.h"
#include "library/zor_ipc/call_frame/proxy_fixture.h"
#include "product_data_holder_proxy.h"
#include "support/calling_logger.h"
#include "zam_client_certs_downloader_proxy.h"
#include "zam_connector/call_deadline.h"
#include "zam_data_provider_proxy.h"
#include "zam_file_downloader_proxy.h"

namespace zam_connector {
namespace {

using test::kUnspecified;

constexpr int kTimedOut = 4;

class LastStatus : public test::ProxyTest {
protected:
    /// Has an operation run out of time.
    void TimeOut() {
        transport_.Enqueue(testing::FailWith(kTimedOut));
        ZamConnectorState state{};
        ASSERT_EQ(controller_.GetState(state), kUnspecified);
        ASSERT_EQ(LastTransportStatus().number, kTimedOut);
    }

    template <typename Record>
    Record RecordOf(void (*init)(Record*, VdZorTransport*, std::uint16_t)) {
        Record record{};
        init(&record, transport_.Get(), 9);
        return record;
    }

    proxy::ZamConnControllerProxy controller_{test::ControllerRecord(transport_.Get())};
};

TEST_F(LastStatus, IsNoneBehindARequestThatCannotBeMade) {
    proxy::ZamFileDownloaderProxy files(RecordOf(&qx_zam_connector_ZamFileDownloader_proxy_init));
    proxy::ZamClientCertsDownloaderProxy certs(
        RecordOf(&qx_zam_connector_ZamClientCertsDownloader_proxy_init));
    const std::string tooLong(100'000, 'p');
    TimeOut();
    FileInfo info;
    EXPECT_EQ(files.GetFileInfo({tooLong}, info), kUnspecified);
    EXPECT_EQ(LastTransportStatus().failure, TransportFailure::None);
    TimeOut();
    FileChunk chunk;
    EXPECT_EQ(files.GetFileChunk({tooLong}, chunk), kUnspecified);
    EXPECT_EQ(LastTransportStatus().failure, TransportFailure::None);
    TimeOut();
    std::vector<ClientCertInfo> all;
    EXPECT_EQ(certs.GetClientCertificates({tooLong, {}, {}}, all), kUnspecified);
    EXPECT_EQ(LastTransportStatus().failure, TransportFailure::None);
}

/// The failure of a streamed read is thrown on its way to the caller.
TEST_F(LastStatus, IsThatOfAStreamThatBroke) {
    proxy::ZamDataProviderProxy provider(RecordOf(&qx_zam_connector_ZamDataProvider_proxy_init));
    transport_.Enqueue({});  // the open
    transport_.Enqueue(testing::FailWith(kTimedOut));
    transport_.Enqueue({});  // the close
    std::pair<unsigned long, ZamUpdatesStatus> status;
    EXPECT_EQ(provider.GetZamUpdatesStatus(status), kUnspecified);
    EXPECT_EQ(LastTransportStatus().failure, TransportFailure::TimedOut);
}

TEST_F(LastStatus, IsNotThatOfCallsThatALoggerMakes) {
    testing::ScriptedTransport answering;
    answering.SetDefault({});
    proxy::ZamConnCommandSenderProxy sender(test::CommandSenderRecord(answering.Get()));
    zam_test::CallingLogger logger([&sender] { EXPECT_EQ(sender.ScheduleSync(), 0); });
    TimeOut();
    EXPECT_EQ(logger.records, 1);
    proxy::ZamDataProviderProxy provider(RecordOf(&qx_zam_connector_ZamDataProvider_proxy_init));
    transport_.Enqueue({});
    transport_.Enqueue(testing::FailWith(kTimedOut));
    transport_.Enqueue({});
    std::pair<unsigned long, ZamUpdatesStatus> status;
    EXPECT_EQ(provider.GetZamUpdatesStatus(status), kUnspecified);
    EXPECT_GT(logger.records, 1);
    EXPECT_EQ(LastTransportStatus().failure, TransportFailure::TimedOut);
}

/// Every public call, failing at its first exchange, its second and so on.
TEST_F(LastStatus, OfEveryFailedCallGoesWithRecordsOfLevelFourAlone) {
    proxy::ZamConnSettingsHolderProxy settingsHolder(test::SettingsHolderRecord(transport_.Get()));
    proxy::ZamConnCommandSenderProxy sender(test::CommandSenderRecord(transport_.Get()));
    proxy::ZamDataProviderProxy provider(RecordOf(&qx_zam_connector_ZamDataProvider_proxy_init));
    proxy::ProductDataHolderProxy holder(RecordOf(&qx_zam_connector_ProductDataHolder_proxy_init));
    proxy::ZamFileDownloaderProxy files(RecordOf(&qx_zam_connector_ZamFileDownloader_proxy_init));
    proxy::ZamClientCertsDownloaderProxy certs(
        RecordOf(&qx_zam_connector_ZamClientCertsDownloader_proxy_init));
    ZamConnectorState state{};
    ZamConnectorSettings settings;
    std::pair<unsigned long, ZamPolicy> policy;
    std::pair<unsigned long, ZamProductSettings> productSettings;
    std::pair<unsigned long, ZamSubscriptions> subscriptions;
    std::pair<unsigned long, ZamUpdatesStatus> updates;
    ZamServerData serverData;
    std::string cert;
    unsigned long hash = 0;
    FileInfo info;
    FileChunk chunk;
    std::vector<ClientCertInfo> all;
    const std::function<int()> single[] = {
        [&] { return controller_.Start({}); },
        [&] { return controller_.Stop(); },
        [&] { return controller_.GetState(state); },
        [&] { return settingsHolder.Set({}); },
        [&] { return settingsHolder.Get(settings); },
        [&] { return sender.ScheduleSync(); },
        [&] { return sender.PostZamEvent("event"); },
        [&] { return provider.GetSubscriptions(subscriptions); },
        [&] { return provider.GetZamServerData(serverData); },
        [&] { return provider.GetZamReserveCert(cert); },
        [&] { return provider.GetPolicyHash(hash); },
        [&] { return provider.GetSettingsHash(hash); },
        [&] { return provider.GetSubscriptionHash(hash); },
        [&] { return provider.GetSyncedSettingsHash(hash); },
        [&] { return provider.GetZamUpdatesStatusHash(hash); },
        [&] { return holder.SetAppInfo({}); },
        [&] { return holder.SetAppInfoDynamic({}); },
        [&] { return files.GetFileInfo({}, info); },
        [&] { return files.GetFileChunk({}, chunk); },
        [&] { return certs.GetClientCertificates({}, all); },
    };
    const std::function<int()> transfers[] = {
        [&] { return provider.GetPolicy(policy); },
        [&] { return provider.GetProductSettings(productSettings); },
        [&] { return provider.GetZamUpdatesStatus(updates); },
        [&] { return holder.SetAppEulas(std::vector<AppEula>(1), hash); },
        [&] { return holder.SetAppUpdates({}, hash); },
        [&] { return holder.SetSettings({zuv::TValue(1)}, hash); },
    };
    transport_.SetDefault(testing::FailWith(kTimedOut));
    std::size_t failures = 0;
    const auto fail = [&](const std::function<int()>& call) {
        EXPECT_LT(call(), 0);
        EXPECT_EQ(LastTransportStatus().failure, TransportFailure::TimedOut);
        ++failures;
    };
    for (const std::function<int()>& call : single) {
        fail(call);
    }
    for (const std::function<int()>& call : transfers) {
        for (int answered = 0; answered < 3; ++answered) {
            for (int answer = 0; answer < answered; ++answer) {
                transport_.Enqueue({});
            }
            fail(call);
        }
    }
    const std::vector<testing::LogRecord> records = logger_.Records();
    EXPECT_GE(records.size(), failures);
    for (const testing::LogRecord& record : records) {
        EXPECT_EQ(record.level, zor::logger::kLevelError) << record.text;
    }
}

}  // namespace
}  // namespace zam_connector
