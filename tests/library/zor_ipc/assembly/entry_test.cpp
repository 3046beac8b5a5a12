// The two entry functions over a scripted platform.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <future>
#include <iterator>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "library/zor_ipc/assembly/parts.h"
#include "library/zor_ipc/assembly/scripted_service.h"
#include "library/zor_ipc/notification/pipelines.h"
#include "library/zor_ipc/notification/thread_state.h"
#include "qel/exception.h"
#include "qx/zam_data_notifier.h"
#include "zam_connector/zam_connector.h"
#include "zam_connector_proxy_factory.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_connector::test {
namespace {

using testing::LogRecord;
using testing::PlatformCall;
using Function = PlatformCall::Function;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int kUnspecified = static_cast<int>(0x8000004BU);

/// The calls of the platform as "connect NAME", "riid HANDLE NAME", "init HANDLE" and
/// "farewell RIID OPERATION".
std::vector<std::string> Lines(const std::vector<PlatformCall>& calls) {
    std::vector<std::string> lines;
    for (const PlatformCall& call : calls) {
        switch (call.function) {
            case Function::ServiceLocatorConnect:
                lines.push_back("connect " + call.name);
                break;
            case Function::ServiceLocatorGetRiid:
                lines.push_back("riid " + std::to_string(call.handle) + " " + call.name);
                break;
            case Function::VdZorTransportInit:
                EXPECT_EQ(call.timeoutMs, 0U);
                EXPECT_EQ(call.flags, 0U);
                lines.push_back("init " + std::to_string(call.handle));
                break;
            case Function::VdZorTransportSetFarewell:
                lines.push_back("farewell " + std::to_string(call.riid) + " " +
                                std::to_string(call.operation));
                break;
        }
    }
    return lines;
}

std::vector<std::string> FullAssembly() {
    const std::string component = "qx.zam_connector.ZamConnectorComponent.";
    return {"connect zam_connector_id",
            "connect zam_file_downloader_id",
            "init 11",
            "init 22",
            "riid 11 " + component + "connController",
            "riid 11 " + component + "connSettingsHolder",
            "riid 11 " + component + "connStateNotifier",
            "farewell 102 2",
            "riid 11 " + component + "connCommandSender",
            "riid 11 " + component + "zamDataProvider",
            "riid 11 " + component + "zamDataNotifier",
            "farewell 105 2",
            "riid 11 " + component + "productDataHolder",
            "riid 22 qx.zam_connector.ZamFileDownloaderComponent.fileDownloader",
            "riid 11 " + component + "clientCertsDownloader"};
}

std::ptrdiff_t ThreadCount() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return std::distance(tasks, {});
}

/// The endpoints that were called.
std::set<std::uint16_t> Riids(const testing::ScriptedTransport& transport) {
    std::set<std::uint16_t> riids;
    for (const testing::RecordedCall& call : transport.Calls()) {
        riids.insert(call.requestHeader.riid);
    }
    return riids;
}

/// Makes a connector that must fail, with the one log record that it leaves.
void ExpectFailure(ScriptedService& service, int code, const std::string& text) {
    testing::RecordingLogger logger;
    Parts parts;
    const std::shared_ptr<IZamConnector> old = parts.Assemble();
    std::shared_ptr<IZamConnector> connector = old;
    EXPECT_EQ(CreateZamConnector(connector, {}), code);
    EXPECT_EQ(connector, old);
    EXPECT_THAT(logger.Records(),
                ElementsAre(LogRecord{4, "zam_connector_proxy_factory", 149, "CreateZamConnector",
                                      "Create zam connector proxy: " + text}));
    EXPECT_THAT(service.connector.Calls(), IsEmpty());
    EXPECT_THAT(service.files.Calls(), IsEmpty());
}

TEST(CreateZamConnector, LooksEverythingUpInOrderAndCallsNothing) {
    ScriptedService service;
    testing::RecordingLogger logger;
    std::shared_ptr<IZamConnector> connector;
    EXPECT_EQ(CreateZamConnector(connector, {"an application"}), 0);
    ASSERT_NE(connector, nullptr);
    EXPECT_EQ(Lines(service.platform.Calls()), FullAssembly());
    EXPECT_THAT(service.connector.Calls(), IsEmpty());
    EXPECT_THAT(service.files.Calls(), IsEmpty());
    EXPECT_THAT(logger.Records(), IsEmpty());
}

/// Every interface talks to the endpoint and the service that it belongs to.
TEST(CreateZamConnector, LeadsEachInterfaceToItsEndpoint) {
    ScriptedService service;
    testing::RecordingLogger logger;
    std::shared_ptr<IZamConnector> connector;
    ASSERT_EQ(CreateZamConnector(connector, {}), 0);

    std::shared_ptr<IZamConnController> controller;
    std::shared_ptr<IZamConnSettingsHolder> settingsHolder;
    std::shared_ptr<IZamConnCommandSender> commandSender;
    std::shared_ptr<IZamDataProvider> dataProvider;
    std::shared_ptr<IProductDataHolder> productDataHolder;
    std::shared_ptr<IZamFileDownloader> fileDownloader;
    std::shared_ptr<IZamClientCertsDownloader> clientCertsDownloader;
    std::shared_ptr<zam_locale::IZamLocaleInfo> localeInfo;
    std::shared_ptr<zam_locale::IZamLocationInfo> locationInfo;
    connector->GetZamController(controller);
    connector->GetSettingsHolder(settingsHolder);
    connector->GetCommandSender(commandSender);
    connector->GetDataProvider(dataProvider);
    connector->GetProductDataHolder(productDataHolder);
    connector->GetFileDownloader(fileDownloader);
    connector->GetClientCertsDownloader(clientCertsDownloader);
    connector->GetZamLocaleInfo(localeInfo);
    connector->GetZamLocationInfo(locationInfo);

    controller->Stop();
    ZamConnectorSettings settings;
    settingsHolder->Get(settings);
    commandSender->ScheduleSync();
    unsigned long hash = 0;
    dataProvider->GetPolicyHash(hash);
    productDataHolder->SetAppInfoDynamic({});
    std::vector<ClientCertInfo> certs;
    clientCertsDownloader->GetClientCertificates({}, certs);
    FileInfo info;
    fileDownloader->GetFileInfo({}, info);

    std::vector<unsigned> riids;
    for (const testing::RecordedCall& call : service.connector.Calls()) {
        riids.push_back(call.requestHeader.riid);
    }
    EXPECT_THAT(riids, ElementsAre(100, 101, 103, 104, 106, 108));
    ASSERT_EQ(service.files.Calls().size(), 1U);
    EXPECT_EQ(service.files.Calls()[0].requestHeader.riid, 107);
    EXPECT_FALSE(localeInfo->LocaleContainer().empty());
    EXPECT_NE(locationInfo, nullptr);
}

TEST(CreateZamConnector, LeadsEachPipelineToItsEndpoints) {
    ScriptedService service;
    testing::RecordingLogger logger;
    std::shared_ptr<IZamConnector> connector;
    ASSERT_EQ(CreateZamConnector(connector, {}), 0);
    std::shared_ptr<IZamConnStateSubscriber> states;
    std::shared_ptr<IZamDataChangeSubscriber> data;
    connector->GetStateChangeSubscriber(states);
    connector->GetDataChangeSubscriber(data);
    SubscriptionCookie cookie;
    const auto stateObserver = std::make_shared<StateObserver>();
    ASSERT_EQ(states->SubscribeOnStateChange(stateObserver, cookie), 0);
    service.TellState(2);
    ASSERT_TRUE(stateObserver->WaitForCount(1));
    ASSERT_EQ(states->Unsubscribe(cookie), 0);
    const auto policyObserver = std::make_shared<PolicyObserver>();
    ASSERT_EQ(data->SubscribeOnPolicyChange(policyObserver, cookie), 0);
    service.TellData(kPolicyKind);
    // Nobody answers the fetch: that it was tried is what counts.
    while (Riids(service.connector).count(kDataProviderRiid) == 0) {
        std::this_thread::yield();
    }
    ASSERT_EQ(data->Unsubscribe(cookie), 0);
    EXPECT_THAT(Riids(service.connector),
                ::testing::ElementsAre(kStateNotifierRiid, kDataProviderRiid, kDataNotifierRiid));
    EXPECT_THAT(service.files.Calls(), IsEmpty());
}

TEST(CreateZamConnector, ReplacesAndReleasesWhatWasThere) {
    ScriptedService service;
    std::shared_ptr<IZamConnector> connector;
    ASSERT_EQ(CreateZamConnector(connector, {}), 0);
    const std::weak_ptr<IZamConnector> first = connector;
    ASSERT_EQ(CreateZamConnector(connector, {}), 0);
    EXPECT_TRUE(first.expired());
}

TEST(CreateZamConnector, FailsWithoutAService) {
    for (const char* const name : {"zam_connector_id", "zam_file_downloader_id"}) {
        ScriptedService service;
        service.platform.SetHandle(name, VD_ZOR_INVALID_HANDLE);
        ExpectFailure(service, kUnspecified,
                      std::string("Zam_ctr_proxy_factory: Handle for ") + name +
                          " wasn't received!. At proxy_init(27)");
        const std::vector<std::string> calls = Lines(service.platform.Calls());
        EXPECT_EQ(calls.back(), std::string("connect ") + name);
    }
}

TEST(CreateZamConnector, FailsWithoutAnEndpoint) {
    for (const char* const endpoint : kEndpoints) {
        ScriptedService service;
        service.platform.SetRiid(endpoint, VD_UNKNOWN_RIID);
        ExpectFailure(service, kUnspecified,
                      std::string("ServiceLocator does not contain connection riid for ") +
                          endpoint + ". At proxy_init(17)");
        std::vector<std::string> expected = FullAssembly();
        const auto last = std::find_if(expected.begin(), expected.end(),
                                       [&](const auto& line) { return line.ends_with(endpoint); });
        expected.erase(last + 1, expected.end());
        EXPECT_EQ(Lines(service.platform.Calls()), expected);
    }
}

/// The one failure whose code is 0: callers must look at the pointer.
TEST(CreateZamConnector, ReturnsZeroWithoutAConnectorForATransportThatIsNoGood) {
    struct Row {
        std::uint32_t handle;
        testing::InitFault fault;
        int line;
    };
    for (const Row& row : {Row{kConnectorHandle, testing::InitFault::NoOps, 40},
                           Row{kFilesHandle, testing::InitFault::NoOps, 40},
                           Row{kConnectorHandle, testing::InitFault::NoHandle, 41},
                           Row{kFilesHandle, testing::InitFault::NoHandle, 41}}) {
        ScriptedService service;
        service.platform.SetInitFault(row.handle, row.fault);
        ExpectFailure(
            service, 0,
            "No error = 0x00000000. At zam_connector_proxy(" + std::to_string(row.line) + ")");
        EXPECT_EQ(Lines(service.platform.Calls()), FullAssembly());
    }
}

TEST(CreateZamConnector, LooksAtTheConnectorsTransportBeforeTheFiles) {
    struct Row {
        testing::InitFault connector;
        testing::InitFault files;
        int line;
    };
    for (const Row& row : {Row{testing::InitFault::NoHandle, testing::InitFault::NoOps, 41},
                           Row{testing::InitFault::NoOps, testing::InitFault::NoHandle, 40}}) {
        ScriptedService service;
        service.platform.SetInitFault(kConnectorHandle, row.connector);
        service.platform.SetInitFault(kFilesHandle, row.files);
        ExpectFailure(
            service, 0,
            "No error = 0x00000000. At zam_connector_proxy(" + std::to_string(row.line) + ")");
    }
}

TEST(CreateZamConnector, LeavesNothingInAnEmptyPointerWhenItFails) {
    ScriptedService service;
    service.platform.SetInitFault(kConnectorHandle, testing::InitFault::NoOps);
    std::shared_ptr<IZamConnector> connector;
    EXPECT_EQ(CreateZamConnector(connector, {}), 0);
    EXPECT_EQ(connector, nullptr);
}

TEST(CreateZamConnector, StartsNoThread) {
    ScriptedService service;
    const std::ptrdiff_t before = ThreadCount();
    std::shared_ptr<IZamConnector> connector;
    ASSERT_EQ(CreateZamConnector(connector, {}), 0);
    EXPECT_EQ(ThreadCount(), before);
}

/// Each call makes all of a connector; its accessors may be called by any thread.
TEST(CreateZamConnector, MayBeCalledByTwoThreadsAtOnce) {
    ScriptedService service;
    std::array<std::shared_ptr<IZamConnector>, 2> connectors;
    {
        std::vector<std::jthread> threads;
        for (std::shared_ptr<IZamConnector>& connector : connectors) {
            threads.emplace_back([&connector] { EXPECT_EQ(CreateZamConnector(connector, {}), 0); });
        }
    }
    EXPECT_NE(connectors[0], connectors[1]);
    EXPECT_EQ(service.platform.Calls().size(), 2 * FullAssembly().size());
    std::shared_ptr<IZamConnController> expected;
    connectors[0]->GetZamController(expected);
    std::vector<std::jthread> threads;
    for (int each = 0; each < 8; ++each) {
        threads.emplace_back([&connector = *connectors[0], expected] {
            for (int round = 0; round < 100; ++round) {
                std::shared_ptr<IZamConnController> controller;
                std::shared_ptr<IZamDataProvider> provider;
                EXPECT_EQ(connector.GetZamController(controller), 0);
                EXPECT_EQ(connector.GetDataProvider(provider), 0);
                EXPECT_EQ(controller, expected);
                EXPECT_NE(provider, nullptr);
            }
        });
    }
}

TEST(ConnectorProxyFactory, AsksForTheServicesItIsTold) {
    ScriptedService service;
    service.platform.SetHandle("a", kConnectorHandle);
    service.platform.SetHandle("b", kFilesHandle);
    proxy::ZamConnectorProxyFactory factory;
    EXPECT_NE(factory.CreateZamConnectorProxy("a", "b"), nullptr);
    std::vector<std::string> expected = FullAssembly();
    expected[0] = "connect a";
    expected[1] = "connect b";
    EXPECT_EQ(Lines(service.platform.Calls()), expected);
}

TEST(ConnectorProxyFactory, RefusesAnEmptyName) {
    for (const bool isFirst : {true, false}) {
        ScriptedService service;
        service.platform.SetHandle("a", kConnectorHandle);
        proxy::ZamConnectorProxyFactory factory;
        try {
            factory.CreateZamConnectorProxy(isFirst ? "" : "a", isFirst ? "b" : "");
            ADD_FAILURE() << "nothing was thrown";
        } catch (const qel::Exception& exception) {
            EXPECT_EQ(qel::ToUtf8(exception.DisplayText()),
                      "Zam_ctr_proxy_factory: Service name is empty!. At proxy_init(25)");
        }
        EXPECT_EQ(Lines(service.platform.Calls()),
                  isFirst ? std::vector<std::string>{} : std::vector<std::string>{"connect a"});
    }
}

TEST(CreateZamConnector, MayBeDroppedInsideAnObserver) {
    ScriptedService service;
    std::shared_ptr<IZamConnector> connector;
    ASSERT_EQ(CreateZamConnector(connector, {}), 0);
    std::shared_ptr<IZamConnStateSubscriber> subscriber;
    connector->GetStateChangeSubscriber(subscriber);
    std::promise<void> ready;
    std::shared_future<void> isReady = ready.get_future().share();
    const auto observer = std::make_shared<StateObserver>([&, isReady](const ZamConnectorState&) {
        isReady.wait();
        connector.reset();
    });
    SubscriptionCookie cookie;
    ASSERT_EQ(subscriber->SubscribeOnStateChange(observer, cookie), 0);
    auto& owner = dynamic_cast<proxy::IPipelineOwner&>(*subscriber);
    ThreadsEnd end(owner);
    subscriber.reset();
    service.TellState(2);
    ready.set_value();
    EXPECT_TRUE(end.Wait());
    EXPECT_THAT(observer->Values(), ElementsAre(ZamConnectorState::Connected));
    EXPECT_EQ(service.connector.Calls().back().requestHeader.operation, 2);
}

/// The drop waits for no observer, and those that are left are called behind it.
TEST(CreateZamConnector, MayBeDroppedWhileAnObserverRuns) {
    ScriptedService service;
    std::shared_ptr<IZamConnector> connector;
    ASSERT_EQ(CreateZamConnector(connector, {}), 0);
    std::shared_ptr<IZamConnStateSubscriber> subscriber;
    connector->GetStateChangeSubscriber(subscriber);
    Flag inside;
    Flag leave;
    const auto observer = std::make_shared<StateObserver>([&](const ZamConnectorState&) {
        inside.Raise();
        leave.Wait();
    });
    const auto next = std::make_shared<StateObserver>();
    SubscriptionCookie cookie;
    ASSERT_EQ(subscriber->SubscribeOnStateChange(observer, cookie), 0);
    ASSERT_EQ(subscriber->SubscribeOnStateChange(next, cookie), 0);
    auto& owner = dynamic_cast<proxy::IPipelineOwner&>(*subscriber);
    ThreadsEnd end(owner);
    subscriber.reset();
    service.TellState(2);
    ASSERT_TRUE(inside.Wait());
    connector.reset();
    EXPECT_EQ(next->Count(), 0U);
    leave.Raise();
    EXPECT_TRUE(end.Wait());
    EXPECT_EQ(next->Count(), 1U);
    EXPECT_EQ(service.connector.Calls().back().requestHeader.operation, 2);
}

TEST(CreateZamFileDownloader, TakesTheFileDownloaderServiceForTheEmptyName) {
    ScriptedService service;
    service.platform.SetHandle("another", kFilesHandle);
    for (const std::string name : {"", "another"}) {
        std::shared_ptr<IZamFileDownloader> downloader;
        const std::size_t before = service.platform.Calls().size();
        EXPECT_EQ(CreateZamFileDownloader(name, downloader), 0);
        ASSERT_NE(downloader, nullptr);
        std::vector<std::string> calls = Lines(service.platform.Calls());
        calls.erase(calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(before));
        EXPECT_THAT(
            calls,
            ElementsAre("connect " + (name.empty() ? "zam_file_downloader_id" : name), "init 22",
                        "riid 22 "
                        "qx.zam_connector.ZamFileDownloaderComponent.fileDownloader"));
        FileInfo info;
        downloader->GetFileInfo({}, info);
    }
    EXPECT_EQ(service.files.Calls().size(), 2U);
}

TEST(CreateZamFileDownloader, LogsAsTheOtherEntryFunctionDoes) {
    ScriptedService service;
    service.platform.SetRiid(qx::kFileDownloaderEndpoint, VD_UNKNOWN_RIID);
    testing::RecordingLogger logger;
    Parts parts;
    std::shared_ptr<IZamFileDownloader> downloader;
    EXPECT_EQ(CreateZamFileDownloader("", downloader), kUnspecified);
    EXPECT_EQ(downloader, nullptr);
    const std::shared_ptr<IZamFileDownloader> old = parts.fileDownloader;
    downloader = old;
    EXPECT_EQ(CreateZamFileDownloader("nobody", downloader), kUnspecified);
    EXPECT_EQ(downloader, old);
    const char* const file = "zam_file_downloader_proxy_factory";
    EXPECT_THAT(
        logger.Records(),
        ElementsAre(LogRecord{4, file, 43, "CreateZamFileDownloader",
                              "Create zam connector proxy: ServiceLocator does not contain "
                              "connection riid for "
                              "qx.zam_connector.ZamFileDownloaderComponent.fileDownloader. At "
                              "proxy_init(17)"},
                    LogRecord{4, file, 43, "CreateZamFileDownloader",
                              "Create zam connector proxy: Zam_ctr_proxy_factory: Handle for "
                              "nobody wasn't received!. At proxy_init(27)"}));
}

/// Its transport is not looked at: the calls fail then.
TEST(CreateZamFileDownloader, GivesADownloaderAlsoWithoutAHandle) {
    ScriptedService service;
    service.platform.SetInitFault(kFilesHandle, testing::InitFault::NoHandle);
    std::shared_ptr<IZamFileDownloader> downloader;
    EXPECT_EQ(CreateZamFileDownloader("", downloader), 0);
    ASSERT_NE(downloader, nullptr);
    testing::RecordingLogger logger;
    FileInfo info;
    EXPECT_EQ(downloader->GetFileInfo({}, info), kUnspecified);
}

}  // namespace
}  // namespace zam_connector::test
