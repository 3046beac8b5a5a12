#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "clock.h"
#include "connector_provider.h"
#include "live_fakes.h"
#include "system_view.h"

namespace zamctl::test {

/// Time that passes only when somebody sleeps or says so.
class FakeClock final : public Clock {
public:
    TimePoint Now() const override { return now_; }

    /// The interrupt comes with the sleep of number `interruptAtSleep`, counted from 1.
    bool SleepFor(std::chrono::nanoseconds duration) override;

    void CatchInterrupt() override { catching = true; }
    bool Interrupted() const override { return interrupted; }

    /// 2026-01-31T12:34:56.789Z and the time that has passed.
    WallTime WallNow() const override;
    void EndWithReader() override { watchesReader = true; }
    void Wake() noexcept override { ++wakes_; }

    /// Runs the next step unless it was woken already; behind the last one comes `end`.
    Wakeup WaitForWake() override;
    void LimitRun(std::chrono::milliseconds limit, const char* message, int status) override;

    void Advance(std::chrono::nanoseconds duration) { now_ += duration; }

    std::vector<std::chrono::nanoseconds> sleeps;
    std::optional<std::size_t> interruptAtSleep;
    bool catching = false;
    bool interrupted = false;
    bool watchesReader = false;
    std::deque<std::function<void()>> steps;
    Wakeup end = Wakeup::Interrupted;
    std::optional<TimePoint> runEnd;  ///< when the process would end
    std::string runMessage;
    int runStatus = 0;

private:
    TimePoint now_{};
    std::atomic<int> wakes_{0};
};

/// Answers as told and notes what it was asked.
class FakeController final : public zam_connector::IZamConnController {
public:
    explicit FakeController(FakeClock& clock) : clock_(clock) {}

    int Start(const zam_connector::ZamConnectionParameters& parameters) noexcept override;
    int Stop() noexcept override;
    int GetState(zam_connector::ZamConnectorState& state) const noexcept override;

    int startCode = 0;
    int stopCode = 0;
    mutable std::deque<int> stateCodes;  ///< for the next calls; 0 when there is none left
    /// For the next calls; the last one stays.
    mutable std::deque<zam_connector::ZamConnectorState> states{
        zam_connector::ZamConnectorState::Stopped};
    /// Time that the next calls take; 0 when there is none left.
    mutable std::deque<std::chrono::nanoseconds> durations;

    std::optional<zam_connector::ZamConnectionParameters> started;
    int stops = 0;
    mutable int stateCalls = 0;

private:
    FakeClock& clock_;
};

class FakeSettingsHolder final : public zam_connector::IZamConnSettingsHolder {
public:
    int Set(zam_connector::ZamConnectorSettings settings) noexcept override;
    int Get(zam_connector::ZamConnectorSettings& settings) const noexcept override;

    int setCode = 0;
    int getCode = 0;
    zam_connector::ZamConnectorSettings current;
    int sets = 0;
};

class FakeCommandSender final : public zam_connector::IZamConnCommandSender {
public:
    int PostZamEvent(std::string event) noexcept override;
    int ScheduleSync() noexcept override;

    int eventCode = 0;
    int syncCode = 0;
    std::vector<std::string> events;
    int syncs = 0;
};

/// Gives the data that it is told to hold. Every call notes its name, and answers `code`.
class FakeDataProvider final : public zam_connector::IZamDataProvider {
public:
    int GetPolicy(std::pair<unsigned long, zam_connector::ZamPolicy>& data) noexcept override;
    int GetProductSettings(
        std::pair<unsigned long, zam_connector::ZamProductSettings>& data) noexcept override;
    int GetSubscriptions(
        std::pair<unsigned long, zam_connector::ZamSubscriptions>& data) noexcept override;
    int GetZamServerData(zam_connector::ZamServerData& data) noexcept override;
    int GetZamReserveCert(std::string& data) noexcept override;
    int GetZamUpdatesStatus(
        std::pair<unsigned long, zam_connector::ZamUpdatesStatus>& data) noexcept override;
    int GetZamUpdatesStatusHash(unsigned long& data) noexcept override;
    int GetPolicyHash(unsigned long& data) noexcept override;
    int GetSettingsHash(unsigned long& data) noexcept override;
    int GetSubscriptionHash(unsigned long& data) noexcept override;
    int GetSyncedSettingsHash(unsigned long& data) noexcept override;

    zuv::TValue policy;
    zuv::TValue settings;
    zam_connector::ZamSubscriptions subscriptions;
    zam_connector::ZamServerData serverData;
    std::string cert;
    zam_connector::ZamUpdatesStatus updates;
    unsigned long hash = 0xC0FFEE;

    int code = 0;
    std::vector<std::string> calls;

private:
    int Note(const char* call) noexcept;
};

/// Keeps what it is sent.
class FakeProductDataHolder final : public zam_connector::IProductDataHolder {
public:
    int SetAppInfo(const zam_connector::AppInfo& data) noexcept override;
    int SetAppInfoDynamic(const zam_connector::DynamicAppInfo& data) noexcept override;
    int SetAppEulas(const std::vector<zam_connector::AppEula>& data,
                    unsigned long& hash) noexcept override;
    int SetAppUpdates(const zam_connector::AppUpdates& data, unsigned long& hash) noexcept override;
    int SetSettings(const zam_connector::ZamProductSettings& data,
                    unsigned long& hash) noexcept override;

    std::optional<zam_connector::AppInfo> info;
    std::optional<zam_connector::DynamicAppInfo> dynamicInfo;
    std::optional<std::vector<zam_connector::AppEula>> eulas;
    std::optional<zam_connector::AppUpdates> updates;
    std::optional<zuv::TValue> settings;
    unsigned long givenHash = 0xC0FFEE;
    int code = 0;
};

/// A connector of fakes, or none.
class FakeProvider final : public ConnectorProvider {
public:
    explicit FakeProvider(FakeClock& clock) : controller(clock) {}

    std::vector<std::string> ServiceNames() const override { return services; }
    ConnectorInterfaces Open() override;
    std::vector<EndpointReport> Endpoints(const std::string& service) override;

    FastChannelUse FastChannel() override;

    FakeController controller;
    FakeSettingsHolder settingsHolder;
    FakeCommandSender commandSender;
    FakeDataProvider dataProvider;
    FakeProductDataHolder productDataHolder;
    FakeStateSubscriber stateSubscriber;
    FakeDataChangeSubscriber dataChangeSubscriber;
    FakeFileDownloader fileDownloader;
    FakeCertsDownloader certsDownloader;
    FakeLocaleInfo localeInfo;
    FakeLocationInfo locationInfo;

    std::vector<std::string> services = {"fake_service"};
    std::string goneService = "fake_service";  ///< the one that `noService` is about
    std::string nothingReturned;               ///< when not empty, what that is told by
    std::string noService;                     ///< when not empty, why there is no service
    std::string missingEndpoint;               ///< when not empty, the endpoint that is not there
    std::string logged;                        ///< when not empty, what is logged before a throw
    std::function<void()> onOpen;              ///< when not empty, run whenever it is opened
    int opens = 0;
    /// But for `calls` and `memoryCalls`: what is known once calls go through memory. They do when
    /// it `isTaken`, behind the first `socketCalls`.
    FastChannelUse fastChannel{.isBuilt = true, .isOn = true, .isOffered = true};
    std::uint64_t socketCalls = 0;
};

/// A machine that has what it is told to have.
class FakeSystem final : public SystemView {
public:
    std::optional<std::string> Variable(const char* name) const override;
    vd::RuntimeDirectoryDiagnosis RuntimeDirectory(
        const std::vector<std::string>& services) const override;
    uid_t User() const override { return user; }
    std::string UserName(uid_t id) const override;
    std::vector<LoadedLibrary> Libraries() const override { return libraries; }
    bool ErrIsTerminal() const override { return errIsTerminal; }

    /// Sets everything up as it is when the service runs in `/run/fake`.
    void MakeSound();

    /// Takes that directory away.
    void LoseDirectory();

    std::map<std::string, std::string> variables;
    vd::RuntimeDirectoryDiagnosis runtimeDirectory;  ///< found whatever services are asked about
    std::map<uid_t, std::string> names{{0, "root"}};
    uid_t user = 1000;
    std::vector<LoadedLibrary> libraries;
    bool errIsTerminal = false;
};

/// Writes a record to the root logger, as the library does on a failure.
void LogError(const std::string& text) noexcept;

}  // namespace zamctl::test
