#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "common/arena.h"
#include "common/connection_casts.h"
#include "daemon_fixture.h"
#include "data_client.h"
#include "endpoints/endpoint_catalog.h"
#include "qx/endpoint_names.h"
#include "result_codes.h"
#include "support/eventually.h"
#include "support/lines.h"
#include "vd/service_locator.h"
#include "zam_platform/posix_error.h"

namespace zam_service {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using zam_connector::ZamConnectionParameters;
using zam_connector::ZamConnectorSettings;
using zam_connector::ZamConnectorState;
using zam_connector::common::CastToVd;
using zam_connector::common::StackArena;
using zam_service::testing::Client;
using zam_service::testing::Code;
using zam_service::testing::DataClient;
using zam_service::testing::Parameters;
using zam_test::Eventually;
using zam_test::Lines;

using ConnectorDaemonTest = zam_service::testing::DaemonFixture;

TEST_F(ConnectorDaemonTest, TellsWhereItServes) {
    Begin();
    EXPECT_EQ(daemon_->DataFolderPath(), fs::canonical(data_.Path()).string());
    EXPECT_EQ(daemon_->SocketPath(), runtime_.Path("zam_connector_id.sock"));
    EXPECT_TRUE(fs::is_socket(daemon_->SocketPath()));
    End();
    EXPECT_FALSE(fs::exists(runtime_.Path("zam_connector_id.sock")));
}

TEST_F(ConnectorDaemonTest, GivesEveryEndpointItsFixedIdAndKnowsNoOthers) {
    Begin();
    const std::uint32_t connector = ServiceLocatorConnect(qx::kConnectorService);
    const std::uint32_t downloader = ServiceLocatorConnect(qx::kFileDownloaderService);
    EXPECT_EQ(Endpoints().size(), 9U);
    for (const Endpoint& endpoint : Endpoints()) {
        const bool isDownloader = endpoint.name == qx::kFileDownloaderEndpoint;
        EXPECT_EQ(ServiceLocatorGetRiid(isDownloader ? downloader : connector,
                                        std::string(endpoint.name).c_str()),
                  endpoint.riid)
            << endpoint.name;
    }
    EXPECT_EQ(ServiceLocatorGetRiid(connector, "qx.zam_connector.ZamConnectorComponent.other"),
              VD_UNKNOWN_RIID);
}

TEST_F(ConnectorDaemonTest, StartsAndStopsTheLink) {
    BeginFast();
    Client client;
    std::optional<ZamConnectorState> state;
    EXPECT_EQ(client.GetState(state), Code(kNoError));
    EXPECT_EQ(state, ZamConnectorState::Stopped);
    EXPECT_EQ(client.Stop(), Code(kFalse));
    EXPECT_EQ(client.Start(Parameters()), Code(kNoError));
    EXPECT_EQ(client.GetState(state), Code(kNoError));
    EXPECT_EQ(state, ZamConnectorState::Connected);
    EXPECT_EQ(client.Start(Parameters()), Code(kFalse));
    ZamConnectionParameters others = Parameters();
    others.keepAlivePeriod = std::chrono::milliseconds(1);
    EXPECT_EQ(client.Start(others), Code(kInvalidState));
    EXPECT_EQ(client.Stop(), Code(kNoError));
    EXPECT_EQ(client.GetState(state), Code(kNoError));
    EXPECT_EQ(state, ZamConnectorState::Stopped);
    EXPECT_EQ(client.Stop(), Code(kFalse));
    EXPECT_EQ(client.Start(others), Code(kNoError)) << "a new start may have other parameters";
}

TEST_F(ConnectorDaemonTest, ConnectsInItsOwnTime) {
    Begin();
    Client client;
    std::optional<ZamConnectorState> state;
    ASSERT_EQ(client.Start(Parameters()), Code(kNoError));
    EXPECT_EQ(client.GetState(state), Code(kNoError));
    EXPECT_EQ(state, ZamConnectorState::Connecting);
    EXPECT_TRUE(Eventually([&] {
        client.GetState(state);
        return state == ZamConnectorState::Connected;
    }));
}

TEST_F(ConnectorDaemonTest, RefusesStartParametersThatCannotBe) {
    BeginFast();
    Client client;
    ZamConnectionParameters parameters = Parameters();
    parameters.serverAddress.clear();
    EXPECT_EQ(client.Start(parameters), Code(kInvalidArgument));
    parameters = Parameters();
    parameters.serverPort = 0;
    EXPECT_EQ(client.Start(parameters), Code(kInvalidArgument));

    StackArena<1360> arena;
    qx_zam_connector_ConnController_Start_req request{};
    request.parameters = CastToVd(Parameters(), arena.Get());
    request.parameters.serverPort = 65536;
    EXPECT_EQ(client.Start(request, arena.Get()), Code(kInvalidArgument));
    request.parameters.serverPort = 65535;
    request.parameters.deviceName.offset = 0xFFFFFFFFU;
    EXPECT_EQ(client.Start(request, arena.Get()), Code(kInvalidArgument));
    request.parameters.deviceName = {0, arena.Get()->used + 1};
    EXPECT_EQ(client.Start(request, arena.Get()), Code(kInvalidArgument));
    request.parameters.deviceName = {0, arena.Get()->used};
    EXPECT_EQ(client.Start(request, arena.Get()), Code(kNoError));
}

TEST_F(ConnectorDaemonTest, AnswersStartAsThePlanPrescribes) {
    data_.Write("connection.json", R"({"start_result": "0x80000045"})");
    Begin();
    Client client;
    EXPECT_EQ(client.Start(Parameters()), Code(static_cast<int>(0x80000045U)));
    EXPECT_EQ(client.Stop(), Code(kFalse)) << "it did start";
}

TEST_F(ConnectorDaemonTest, StartsAnewAfterARefusal) {
    data_.Write("connection.json", R"({"refuse": {"after_ms": 0}})");
    Begin();
    Client client;
    std::optional<ZamConnectorState> state;
    EXPECT_EQ(client.Start(Parameters()), Code(kNoError));
    client.GetState(state);
    EXPECT_EQ(state, ZamConnectorState::Refused);
    ZamConnectionParameters others = Parameters();
    others.serverAddress = "other.example";
    EXPECT_EQ(client.Start(others), Code(kNoError));
    EXPECT_EQ(client.Stop(), Code(kNoError));
}

TEST_F(ConnectorDaemonTest, KeepsSettingsAcrossARestart) {
    Begin();
    ZamConnectorSettings settings;
    settings.syncPeriod = zam_connector::ZamSeconds(77);
    settings.sendDiagnostics = true;
    {
        Client client;
        EXPECT_EQ(client.Get(), ZamConnectorSettings());
        EXPECT_EQ(client.Set(settings), Code(kNoError));
        EXPECT_EQ(client.Get(), settings);
    }
    End();
    Begin();
    EXPECT_EQ(Client().Get(), settings);
}

TEST_F(ConnectorDaemonTest, RefusesSettingsThatContradictThemselves) {
    Begin();
    Client client;
    ZamConnectorSettings settings;
    settings.reconnectDelayMin = settings.reconnectDelayMax + zam_connector::ZamSeconds(1);
    EXPECT_EQ(client.Set(settings), Code(kInvalidArgument));
    EXPECT_EQ(client.Get(), ZamConnectorSettings());
    settings.reconnectDelayMin = settings.reconnectDelayMax;
    EXPECT_EQ(client.Set(settings), Code(kNoError));
}

TEST_F(ConnectorDaemonTest, AnswersAMediaErrorWhenSettingsCannotBeWritten) {
    fs::create_directory(data_.Path("connector_settings.json"));
    Begin();
    Client client;
    ZamConnectorSettings settings;
    settings.eventQueueLimit = 1;
    EXPECT_EQ(client.Set(settings), Code(kMediaError));
    EXPECT_EQ(client.Get(), ZamConnectorSettings());
}

TEST_F(ConnectorDaemonTest, TakesUpSettingsEditedByHand) {
    Begin();
    Client client;
    EXPECT_EQ(client.Get(), ZamConnectorSettings());
    data_.Write("connector_settings.json", R"({"event_queue_limit": 3})");
    EXPECT_TRUE(Eventually([&] { return client.Get().eventQueueLimit == 3; }));
}

TEST_F(ConnectorDaemonTest, AppliesTheSettingsOfManyClientsInOneOrder) {
    Begin();
    std::vector<std::thread> threads;
    for (std::uint32_t number = 1; number <= 4; ++number) {
        threads.emplace_back([number] {
            Client client;
            ZamConnectorSettings settings;
            for (std::uint32_t round = 0; round < 10; ++round) {
                settings.eventQueueLimit = number * 100 + round;
                EXPECT_EQ(client.Set(settings), Code(kNoError));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const ZamConnectorSettings inForce = Client().Get();
    End();
    const auto tree = nlohmann::json::parse(data_.Read("connector_settings.json"));
    EXPECT_EQ(tree.at("event_queue_limit"), inForce.eventQueueLimit);
}

TEST_F(ConnectorDaemonTest, KeepsEventsInTheHistoryBeforeItAnswers) {
    Begin();
    Client client;
    EXPECT_EQ(client.Post("first"), Code(kNoError));
    EXPECT_THAT(History("text"), ElementsAre("event first"));
    EXPECT_EQ(client.Post(std::string(128, 'x')), Code(kNoError));
    EXPECT_EQ(client.Post("no UTF-8: \xFF"), Code(kNoError));
    EXPECT_THAT(History("text_base64"), ElementsAre("event", "event", "event bm8gVVRGLTg6IP8="));
}

TEST_F(ConnectorDaemonTest, RefusesEventsWithoutATextThatCanBeRead) {
    Begin();
    Client client;
    EXPECT_EQ(client.Post(""), Code(kInvalidArgument));
    StackArena<128> arena;
    qx_zam_connector_ConnCommandSender_PostZamEvent_req request{};
    request.event = CastToVd("text", arena.Get());
    request.event.length = 5;
    EXPECT_EQ(client.Post(request, arena.Get()), Code(kInvalidArgument));
    EXPECT_FALSE(fs::exists(data_.Path("uploads/history.jsonl")));
}

TEST_F(ConnectorDaemonTest, KeepsWhatClientsSentForItsOwnerAndItsGroup) {
    Begin();
    Client client;
    ASSERT_EQ(client.Post("text"), Code(kNoError));
    ASSERT_EQ(DataClient().SetAppInfoDynamic({}), 0);
    const auto modeOf = [this](const char* name) {
        return fs::status(data_.Path(name)).permissions() & fs::perms::all;
    };
    const auto ownersAndGroups =
        fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read;
    EXPECT_EQ(modeOf("uploads/history.jsonl"), ownersAndGroups);
    EXPECT_EQ(modeOf("uploads/app_info_dynamic.json"), ownersAndGroups);
    EXPECT_EQ(modeOf("uploads"), ownersAndGroups | fs::perms::owner_exec | fs::perms::group_exec);
}

TEST_F(ConnectorDaemonTest, AnswersAMediaErrorWhenTheHistoryCannotBeWritten) {
    data_.Write("uploads", "no folder");
    BeginFast();
    Client client;
    EXPECT_EQ(client.Post("text"), Code(kMediaError));
    EXPECT_EQ(client.ScheduleSync(), Code(kMediaError));
    EXPECT_EQ(client.ScheduleSync(), Code(kMediaError)) << "the first one is not pending";
    EXPECT_EQ(client.Start(Parameters()), Code(kNoError)) << "the link needs no disk";
}

TEST_F(ConnectorDaemonTest, WritesTheLinksLifeWithoutCredentials) {
    BeginFast();
    Client client;
    ASSERT_EQ(client.Start(Parameters()), Code(kNoError));
    ASSERT_EQ(client.ScheduleSync(), Code(kNoError));
    ASSERT_TRUE(Eventually([&] { return History().size() == 5; }));
    ASSERT_EQ(client.Stop(), Code(kNoError));
    End();
    EXPECT_THAT(History("state"),
                ElementsAre("start", "state connecting", "state connected", "sync_scheduled",
                            "sync", "stop", "state stopping", "state stopped"));
    const std::string text = data_.Read("uploads/history.jsonl");
    EXPECT_THAT(text, Not(HasSubstr("secret")));
    const auto start = nlohmann::json::parse(Lines(text).front());
    EXPECT_EQ(start.at("server_address"), "server.example");
    EXPECT_EQ(start.at("server_port"), 13000);
    EXPECT_EQ(start.at("product_name"), "product");
    EXPECT_EQ(start.at("device_name"), "device");
    EXPECT_EQ(start.at("proxy_url"), "http://proxy.example:3128");
    for (const auto& record : logger_.Records()) {
        EXPECT_THAT(record.text, Not(HasSubstr("secret")));
    }
}

TEST_F(ConnectorDaemonTest, KeepsOneSynchronisationPendingUntilTheLinkIsUp) {
    BeginFast();
    Client client;
    EXPECT_EQ(client.ScheduleSync(), Code(kNoError));
    EXPECT_EQ(client.ScheduleSync(), Code(kFalse));
    EXPECT_THAT(History(), ElementsAre("sync_scheduled"));
    ASSERT_EQ(client.Start(Parameters()), Code(kNoError));
    ASSERT_TRUE(Eventually([&] { return History().back() == "sync"; }));
    EXPECT_EQ(client.ScheduleSync(), Code(kNoError)) << "the one before is done";
}

TEST_F(ConnectorDaemonTest, DropsThePendingSynchronisationAtTheStop) {
    data_.Write("connection.json", R"({"start": [{"state": "connecting"}],
                                       "stop": [{"state": "stopped"}]})");
    Begin();
    Client client;
    ASSERT_EQ(client.Start(Parameters()), Code(kNoError));
    ASSERT_EQ(client.ScheduleSync(), Code(kNoError));
    ASSERT_EQ(client.Stop(), Code(kNoError));
    EXPECT_EQ(client.ScheduleSync(), Code(kNoError));
    End();
    EXPECT_THAT(History(), ElementsAre("start", "state", "sync_scheduled", "stop", "sync_dropped",
                                       "state", "sync_scheduled"));
}

TEST_F(ConnectorDaemonTest, HasTheDirectoryForItself) {
    Begin();
    try {
        const ConnectorDaemon second(
            {.dataFolder = data_.Path(), .runtimeDirectory = runtime_.Path(), .group = {}});
        FAIL();
    } catch (const zam_platform::PlatformError& error) {
        EXPECT_THAT(error.what(), HasSubstr("another connector service serves this directory"));
    }
}

TEST_F(ConnectorDaemonTest, EndsInOrderWhenItIsStoppedBeforeItRuns) {
    ConnectorDaemon daemon(
        {.dataFolder = data_.Path(), .runtimeDirectory = runtime_.Path(), .group = {}});
    daemon.Stop();
    daemon.Run();
    EXPECT_FALSE(fs::exists(runtime_.Path("zam_connector_id.sock")));
}

TEST_F(ConnectorDaemonTest, EndsInOrderWhenItNeverRan) {
    const ConnectorDaemon daemon(
        {.dataFolder = data_.Path(), .runtimeDirectory = runtime_.Path(), .group = {}});
    EXPECT_TRUE(fs::exists(daemon.SocketPath()));
}

TEST_F(ConnectorDaemonTest, AnswersWhatItTookBeforeTheStop) {
    Begin();
    std::atomic<int> posted = 0;
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([&] {
            Client client;
            while (client.Post("event") == Code(kNoError)) {
                ++posted;
            }
        });
    }
    ASSERT_TRUE(Eventually([&] { return posted >= 20; }));
    End();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_GE(History().size(), static_cast<std::size_t>(posted.load()));
}

}  // namespace
}  // namespace zam_service
