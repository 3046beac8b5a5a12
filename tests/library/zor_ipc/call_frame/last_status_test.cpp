// What the transport came to in a thread's last operation, as programs ask for it.

#include <string>
#include <utility>
#include <vector>

#include "common/connection_casts.h"
#include "library/zor_ipc/call_frame/proxy_fixture.h"
#include "zam_client_certs_downloader_proxy.h"
#include "zam_connector/call_deadline.h"
#include "zam_data_provider_proxy.h"
#include "zam_file_downloader_proxy.h"

namespace zam_connector {
namespace {

using test::kUnspecified;

constexpr int kTimedOut = 4;

/// A logger of an application that makes a call for each record; the call succeeds.
class CallingLogger final : public zor::logger::ZORLogger {
public:
    CallingLogger() { InstallRootLogger(this); }
    CallingLogger(const CallingLogger&) = delete;
    CallingLogger& operator=(const CallingLogger&) = delete;
    ~CallingLogger() override { InstallRootLogger(nullptr); }

    bool IsEnabled(int level) const override { return level >= zor::logger::kLevelError; }
    void LogImpl(int /*level*/, const char* /*file*/, int /*line*/, const char* /*function*/,
                 std::string_view /*text*/) override {
        ++records;
        EXPECT_EQ(sender_.ScheduleSync(), 0);
    }

    int records = 0;

private:
    static testing::ScriptedTransport& Answering(testing::ScriptedTransport& transport) {
        transport.SetDefault({});
        return transport;
    }

    testing::ScriptedTransport transport_;
    proxy::ZamConnCommandSenderProxy sender_{
        test::CommandSenderRecord(Answering(transport_).Get())};
};

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
    CallingLogger logger;
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

}  // namespace
}  // namespace zam_connector
