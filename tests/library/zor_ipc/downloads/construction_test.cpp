#include <memory>
#include <typeinfo>

#include "download_rig.h"
#include "library/zor_ipc/data_proxies/record_checks.h"
#include "qel/exception.h"
#include "zam_connector_testing/scripted_platform.h"

namespace zam_connector {
namespace {

using proxy::ZamClientCertsDownloaderProxy;
using proxy::ZamFileDownloaderProxy;
using ::testing::IsEmpty;
using testing::PlatformCall;
using testing::ScriptedPlatform;

constexpr char kEndpoint[] = "qx.zam_connector.ZamFileDownloaderComponent.fileDownloader";
constexpr unsigned kHandle = 7;

/// A transport to hand over, which leads to `scripted`.
std::unique_ptr<VdZorTransport> TransportTo(testing::ScriptedTransport& scripted) {
    auto transport = std::make_unique<VdZorTransport>();
    scripted.Attach(transport.get());
    return transport;
}

TEST(Downloaders, RefuseRecordsThatLackSomething) {
    testing::ScriptedTransport transport;
    test::ExpectChecks<ZamFileDownloaderProxy>(test::FileRecord(transport.Get()),
                                               "zam_file_downloader_proxy");
    test::ExpectChecks<ZamClientCertsDownloaderProxy>(test::CertsRecord(transport.Get()),
                                                      "zam_client_certs_downloader_proxy");
    EXPECT_THAT(transport.Calls(), IsEmpty());
}

TEST(Downloaders, KeepCopiesOfTheirRecords) {
    testing::ScriptedTransport transport;
    transport.SetDefault({});
    auto fileRecord = test::FileRecord(transport.Get());
    auto certsRecord = test::CertsRecord(transport.Get());
    ZamFileDownloaderProxy files(fileRecord);
    ZamClientCertsDownloaderProxy certs(certsRecord);
    fileRecord = {};
    certsRecord = {};
    FileInfo info;
    std::vector<ClientCertInfo> certificates;
    EXPECT_EQ(files.GetFileInfo({}, info), 0);
    EXPECT_EQ(certs.GetClientCertificates({}, certificates), 0);
    ASSERT_EQ(transport.Calls().size(), 2U);
    EXPECT_EQ(transport.Calls()[0].requestHeader.riid, test::kFileRiid);
    EXPECT_EQ(transport.Calls()[1].requestHeader.riid, test::kCertsRiid);
}

TEST(FileDownloader, HoldsTheTransportItIsGiven) {
    ScriptedPlatform platform;
    platform.SetRiid(kEndpoint, 0xFFFE);
    testing::ScriptedTransport scripted;
    scripted.SetDefault({});
    auto transport = TransportTo(scripted);
    const VdZorTransport* const given = transport.get();
    ZamFileDownloaderProxy proxy(std::move(transport), kHandle, kEndpoint);

    const auto lookups = platform.Calls();
    ASSERT_EQ(lookups.size(), 1U);
    EXPECT_EQ(lookups[0].function, PlatformCall::Function::ServiceLocatorGetRiid);
    EXPECT_EQ(lookups[0].handle, kHandle);
    EXPECT_EQ(lookups[0].name, kEndpoint);

    FileChunk chunk;
    EXPECT_EQ(proxy.GetFileChunk({}, chunk), 0);
    const auto calls = scripted.Calls();
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].transport, given);
    EXPECT_EQ(calls[0].requestHeader.riid, 0xFFFE);
    EXPECT_EQ(calls[0].requestHeader.operation, 1);
}

TEST(FileDownloader, RefusesANullTransportBeforeItAsksTheLocator) {
    const ScriptedPlatform platform;
    test::ExpectRefused([] { ZamFileDownloaderProxy(nullptr, kHandle, kEndpoint); },
                        "zam_file_downloader_proxy", 26);
    EXPECT_THAT(platform.Calls(), IsEmpty());
}

TEST(FileDownloader, FailsWhenTheServiceHasNoSuchEndpoint) {
    const ScriptedPlatform platform;
    testing::ScriptedTransport scripted;
    auto transport = TransportTo(scripted);
    try {
        ZamFileDownloaderProxy(std::move(transport), kHandle, kEndpoint);
        ADD_FAILURE() << "nothing was thrown";
    } catch (const qel::CheckFailedException& exception) {
        EXPECT_EQ(typeid(exception), typeid(qel::CheckFailedException));
        EXPECT_EQ(qel::ToUtf8(exception.DisplayText()),
                  "ServiceLocator does not contain connection riid for "
                  "qx.zam_connector.ZamFileDownloaderComponent.fileDownloader. At proxy_init(17)");
    }
    EXPECT_EQ(transport, nullptr);
    EXPECT_THAT(scripted.Calls(), IsEmpty());
}

}  // namespace
}  // namespace zam_connector
