#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "data_fixture.h"
#include "zam_connector/create_zam_connector.h"
#include "zam_connector_testing/recording_observer.h"

namespace zam_connector::test {

/// Everything that a connector hands out.
struct Interfaces {
    Interfaces() = default;

    /// Asks for all of it; fails the test when one is not given.
    explicit Interfaces(IZamConnector& connector);

    std::shared_ptr<IZamConnController> controller;
    std::shared_ptr<IZamConnSettingsHolder> settingsHolder;
    std::shared_ptr<IZamConnStateSubscriber> stateSubscriber;
    std::shared_ptr<IZamConnCommandSender> commandSender;
    std::shared_ptr<IZamDataProvider> dataProvider;
    std::shared_ptr<IZamDataChangeSubscriber> dataChangeSubscriber;
    std::shared_ptr<IProductDataHolder> productDataHolder;
    std::shared_ptr<IZamFileDownloader> fileDownloader;
    std::shared_ptr<zam_locale::IZamLocaleInfo> localeInfo;
    std::shared_ptr<zam_locale::IZamLocationInfo> locationInfo;
    std::shared_ptr<IZamClientCertsDownloader> clientCertsDownloader;

    /// What releases each of them.
    std::vector<std::function<void()>> Releases();

    /// Each of them, as long as somebody holds it.
    std::vector<std::weak_ptr<void>> Watched() const;
};

/// Connectors as clients make them, with the service in another process. What it serves is known,
/// so that every answer can be told right or wrong.
class ServiceConnectorTest : public ServiceDataTest {
protected:
    using PolicyChange = std::pair<std::uint64_t, ZamPolicy>;
    using PolicyObserver = testing::RecordingObserver<PolicyChange>;
    using StateObserver = testing::RecordingObserver<ZamConnectorState>;

    /// Writes what is served: the sample, some of it changed. The service is started by the test.
    void SetUp() override;

    static std::shared_ptr<IZamConnector> Connector();

    /// Reads through each interface that is held; the names of those whose answers are wrong.
    /// Thread-safe.
    static std::vector<std::string> WrongAnswers(const Interfaces& interfaces);

    /// The same of the tables alone, which need no connector.
    static std::vector<std::string> WrongTables(const Interfaces& interfaces);

    void WritePolicy(long number);

    /// Whether the observer was told of that policy.
    static bool WasTold(const PolicyObserver& observer, long number);

    static std::size_t OwnThreads();

    /// Connectors and what they handed out are gone by now: the library's threads end.
    void TearDown() override;

private:
    /// With the one that a sanitizer starts beside the first of a process.
    static std::size_t ThreadsAtRest();

    const std::size_t threadsAtRest_ = ThreadsAtRest();
};

}  // namespace zam_connector::test
