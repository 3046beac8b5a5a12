#include "connector_fixture.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

#include "process_measures.h"
#include "support/program.h"

namespace zam_connector::test {
namespace {

constexpr char kFile[] = "a file that is served";
constexpr std::uint32_t kQueueLimit = 4711;
constexpr LocaleIdType kEnglishUs = 1033;
constexpr LocaleIdType kEnglish = 9;

bool IsSample(IZamConnSettingsHolder& holder) {
    ZamConnectorSettings settings;
    return holder.Get(settings) == 0 && settings.eventQueueLimit == kQueueLimit;
}

bool IsSample(IZamDataProvider& provider) {
    std::pair<unsigned long, ZamProductSettings> settings;
    unsigned long hash = 0;
    return provider.GetProductSettings(settings) == 0 && provider.GetSettingsHash(hash) == 0 &&
           settings.first == hash &&
           settings.second.tree.IsIdenticalTo(zuv::Map{{"settings", "of the product"}});
}

bool IsSample(IZamFileDownloader& downloader) {
    FileInfo info;
    FileChunk chunk;
    return downloader.GetFileInfo({"served"}, info) == 0 &&
           info.sizeBytes == std::string(kFile).size() &&
           downloader.GetFileChunk({"served", 0, 0}, chunk) == 0 &&
           std::string(reinterpret_cast<const char*>(chunk.data.data()), chunk.data.size()) ==
               kFile;
}

bool IsSample(IZamClientCertsDownloader& downloader) {
    std::vector<ClientCertInfo> certs;
    return downloader.GetClientCertificates({}, certs) == 0 && certs.size() == 1 &&
           certs.front().name == "sample";
}

}  // namespace

Interfaces::Interfaces(IZamConnector& connector) {
    EXPECT_EQ(connector.GetZamController(controller), 0);
    EXPECT_EQ(connector.GetSettingsHolder(settingsHolder), 0);
    EXPECT_EQ(connector.GetStateChangeSubscriber(stateSubscriber), 0);
    EXPECT_EQ(connector.GetCommandSender(commandSender), 0);
    EXPECT_EQ(connector.GetDataProvider(dataProvider), 0);
    EXPECT_EQ(connector.GetDataChangeSubscriber(dataChangeSubscriber), 0);
    EXPECT_EQ(connector.GetProductDataHolder(productDataHolder), 0);
    EXPECT_EQ(connector.GetFileDownloader(fileDownloader), 0);
    EXPECT_EQ(connector.GetZamLocaleInfo(localeInfo), 0);
    EXPECT_EQ(connector.GetZamLocationInfo(locationInfo), 0);
    EXPECT_EQ(connector.GetClientCertsDownloader(clientCertsDownloader), 0);
    for (const std::weak_ptr<void>& each : Watched()) {
        EXPECT_FALSE(each.expired());
    }
}

std::vector<std::function<void()>> Interfaces::Releases() {
    return {[this] { controller.reset(); },           [this] { settingsHolder.reset(); },
            [this] { stateSubscriber.reset(); },      [this] { commandSender.reset(); },
            [this] { dataProvider.reset(); },         [this] { dataChangeSubscriber.reset(); },
            [this] { productDataHolder.reset(); },    [this] { fileDownloader.reset(); },
            [this] { localeInfo.reset(); },           [this] { locationInfo.reset(); },
            [this] { clientCertsDownloader.reset(); }};
}

std::vector<std::weak_ptr<void>> Interfaces::Watched() const {
    return {controller,   settingsHolder,       stateSubscriber,      commandSender,
            dataProvider, dataChangeSubscriber, productDataHolder,    fileDownloader,
            localeInfo,   locationInfo,         clientCertsDownloader};
}

void ServiceConnectorTest::SetUp() {
    const ProgramResult written = RunProgram(ZAM_CONNECTORD, {"--init", service_.DataDirectory()});
    ASSERT_EQ(written.status, 0) << written.err;
    service_.WriteData("connector_settings.json",
                       fmt::format(R"({{"event_queue_limit": {}}})", kQueueLimit));
    service_.WriteData("product_settings.json", R"({"settings": "of the product"})");
    service_.WriteData("files/served", kFile);
}

std::shared_ptr<IZamConnector> ServiceConnectorTest::Connector() {
    std::shared_ptr<IZamConnector> connector;
    EXPECT_EQ(CreateZamConnector(connector, {}), 0);
    EXPECT_NE(connector, nullptr);
    return connector;
}

std::vector<std::string> ServiceConnectorTest::WrongAnswers(const Interfaces& interfaces) {
    std::vector<std::string> wrong = WrongTables(interfaces);
    const auto check = [&wrong](const char* name, bool isHeld, const auto& isRight) {
        if (isHeld && !isRight()) {
            wrong.emplace_back(name);
        }
    };
    check("controller", interfaces.controller != nullptr, [&] {
        ZamConnectorState state = ZamConnectorState::Refused;
        return interfaces.controller->GetState(state) == 0 && state == ZamConnectorState::Stopped;
    });
    check("settings holder", interfaces.settingsHolder != nullptr,
          [&] { return IsSample(*interfaces.settingsHolder); });
    check("data provider", interfaces.dataProvider != nullptr,
          [&] { return IsSample(*interfaces.dataProvider); });
    check("file downloader", interfaces.fileDownloader != nullptr,
          [&] { return IsSample(*interfaces.fileDownloader); });
    check("client certs downloader", interfaces.clientCertsDownloader != nullptr,
          [&] { return IsSample(*interfaces.clientCertsDownloader); });
    return wrong;
}

std::vector<std::string> ServiceConnectorTest::WrongTables(const Interfaces& interfaces) {
    constexpr std::size_t kLocales = 22;
    std::vector<std::string> wrong;
    if (interfaces.localeInfo && (interfaces.localeInfo->LocaleContainer().size() != kLocales ||
                                  !interfaces.localeInfo->DefaultLocale())) {
        wrong.emplace_back("locale info");
    }
    if (interfaces.locationInfo &&
        (!interfaces.locationInfo->HasLocationInfo(kEnglishUs) ||
         interfaces.locationInfo->RemoveLocationInfo(kEnglishUs) != kEnglish)) {
        wrong.emplace_back("location info");
    }
    return wrong;
}

void ServiceConnectorTest::WritePolicy(long number) {
    service_.WriteData("policy.json", fmt::format(R"({{"number": {}}})", number));
}

bool ServiceConnectorTest::WasTold(const PolicyObserver& observer, long number) {
    const zuv::TValue expected = zuv::Map{{"number", number}};
    return observer.WaitUntil([&expected](const std::vector<PolicyChange>& changes) {
        return std::any_of(changes.begin(), changes.end(), [&](const PolicyChange& change) {
            return change.second.tree.IsIdenticalTo(expected);
        });
    });
}

std::size_t ServiceConnectorTest::OwnThreads() {
    return ProcessMeasures::Of(::getpid()).threads;
}

std::size_t ServiceConnectorTest::ThreadsAtRest() {
    std::thread([] {}).join();
    return OwnThreads();
}

void ServiceConnectorTest::TearDown() {
    EXPECT_TRUE(Eventually([this] { return OwnThreads() <= threadsAtRest_; }));
}

}  // namespace zam_connector::test
