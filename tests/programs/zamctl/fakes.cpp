#include "fakes.h"

#include <algorithm>
#include <stdexcept>

#include "zor/logger.h"

namespace zamctl::test {
namespace {

/// The next of some values, and `fallback` when there is none left.
template <typename Value>
Value Take(std::deque<Value>& values, Value fallback) {
    if (values.empty()) {
        return fallback;
    }
    const Value value = values.front();
    values.pop_front();
    return value;
}

}  // namespace

bool FakeClock::SleepFor(std::chrono::nanoseconds duration) {
    sleeps.push_back(duration);
    Advance(duration);
    interrupted = interrupted || interruptAtSleep == sleeps.size();
    return !interrupted;
}

void FakeClock::LimitRun(std::chrono::milliseconds limit, const char* message, int status) {
    if (limit.count() == 0) {
        runEnd.reset();
        return;
    }
    runEnd = std::min(runEnd.value_or(now_ + limit), now_ + limit);
    runMessage = message;
    runStatus = status;
}

Clock::WallTime FakeClock::WallNow() const {
    constexpr std::chrono::milliseconds kStart{1'769'862'896'789};
    return WallTime(kStart) +
           std::chrono::duration_cast<WallTime::duration>(now_.time_since_epoch());
}

Clock::Wakeup FakeClock::WaitForWake() {
    if (wakes_.exchange(0) > 0) {
        return Wakeup::Called;
    }
    if (steps.empty()) {
        return end;
    }
    const std::function<void()> step = std::move(steps.front());
    steps.pop_front();
    step();
    return Wakeup::Called;
}

int FakeController::Start(const zam_connector::ZamConnectionParameters& parameters) noexcept {
    started = parameters;
    return startCode;
}

int FakeController::Stop() noexcept {
    ++stops;
    return stopCode;
}

int FakeController::GetState(zam_connector::ZamConnectorState& state) const noexcept {
    ++stateCalls;
    clock_.Advance(Take(durations, std::chrono::nanoseconds(0)));
    state = states.front();
    if (states.size() > 1) {
        states.pop_front();
    }
    return Take(stateCodes, 0);
}

int FakeSettingsHolder::Set(zam_connector::ZamConnectorSettings settings) noexcept {
    ++sets;
    current = settings;
    return setCode;
}

int FakeSettingsHolder::Get(zam_connector::ZamConnectorSettings& settings) const noexcept {
    settings = current;
    return getCode;
}

int FakeCommandSender::PostZamEvent(std::string event) noexcept {
    events.push_back(std::move(event));
    return eventCode;
}

int FakeCommandSender::ScheduleSync() noexcept {
    ++syncs;
    return syncCode;
}

int FakeDataProvider::GetPolicy(std::pair<unsigned long, zam_connector::ZamPolicy>& data) noexcept {
    data = {hash, {policy}};
    return Note("GetPolicy");
}

int FakeDataProvider::GetProductSettings(
    std::pair<unsigned long, zam_connector::ZamProductSettings>& data) noexcept {
    data = {hash, {settings}};
    return Note("GetProductSettings");
}

int FakeDataProvider::GetSubscriptions(
    std::pair<unsigned long, zam_connector::ZamSubscriptions>& data) noexcept {
    data = {hash, subscriptions};
    return Note("GetSubscriptions");
}

int FakeDataProvider::GetZamServerData(zam_connector::ZamServerData& data) noexcept {
    data = serverData;
    return Note("GetZamServerData");
}

int FakeDataProvider::GetZamReserveCert(std::string& data) noexcept {
    data = cert;
    return Note("GetZamReserveCert");
}

int FakeDataProvider::GetZamUpdatesStatus(
    std::pair<unsigned long, zam_connector::ZamUpdatesStatus>& data) noexcept {
    data = {hash, updates};
    return Note("GetZamUpdatesStatus");
}

int FakeDataProvider::GetZamUpdatesStatusHash(unsigned long& data) noexcept {
    data = hash;
    return Note("GetZamUpdatesStatusHash");
}

int FakeDataProvider::GetPolicyHash(unsigned long& data) noexcept {
    data = hash;
    return Note("GetPolicyHash");
}

int FakeDataProvider::GetSettingsHash(unsigned long& data) noexcept {
    data = hash;
    return Note("GetSettingsHash");
}

int FakeDataProvider::GetSubscriptionHash(unsigned long& data) noexcept {
    data = hash;
    return Note("GetSubscriptionHash");
}

int FakeDataProvider::GetSyncedSettingsHash(unsigned long& data) noexcept {
    data = hash;
    return Note("GetSyncedSettingsHash");
}

int FakeDataProvider::Note(const char* call) noexcept {
    calls.emplace_back(call);
    return code;
}

int FakeProductDataHolder::SetAppInfo(const zam_connector::AppInfo& data) noexcept {
    info = data;
    return code;
}

int FakeProductDataHolder::SetAppInfoDynamic(const zam_connector::DynamicAppInfo& data) noexcept {
    dynamicInfo = data;
    return code;
}

int FakeProductDataHolder::SetAppEulas(const std::vector<zam_connector::AppEula>& data,
                                       unsigned long& hash) noexcept {
    eulas = data;
    hash = givenHash;
    return code;
}

int FakeProductDataHolder::SetAppUpdates(const zam_connector::AppUpdates& data,
                                         unsigned long& hash) noexcept {
    updates = data;
    hash = givenHash;
    return code;
}

int FakeProductDataHolder::SetSettings(const zam_connector::ZamProductSettings& data,
                                       unsigned long& hash) noexcept {
    settings = data.tree;
    hash = givenHash;
    return code;
}

ConnectorInterfaces FakeProvider::Open() {
    ++opens;
    if (onOpen) {
        onOpen();
    }
    if (!logged.empty()) {
        LogError(logged);
    }
    if (!noService.empty()) {
        throw UnreachableService(goneService, noService);
    }
    if (!nothingReturned.empty()) {
        throw NothingReturned(nothingReturned);
    }
    if (!missingEndpoint.empty()) {
        throw MissingEndpoint("fake_service", "no riid for " + missingEndpoint);
    }
    return {controller,      settingsHolder,       stateSubscriber,   commandSender,
            dataProvider,    dataChangeSubscriber, productDataHolder, fileDownloader,
            certsDownloader, localeInfo,           locationInfo};
}

std::vector<EndpointReport> FakeProvider::Endpoints(const std::string& service) {
    if (!noService.empty() && service == goneService) {
        throw UnreachableService(service, noService);
    }
    if (service != services.front()) {
        return {{"fake.files", 9}};
    }
    std::vector<EndpointReport> reports = {{"fake.controller", 1}, {"fake.settings", 2}};
    if (!missingEndpoint.empty()) {
        reports.push_back({missingEndpoint, std::nullopt});
    }
    return reports;
}

FastChannelUse FakeProvider::FastChannel() {
    FastChannelUse use = fastChannel;
    use.calls = static_cast<std::uint64_t>(controller.stateCalls);
    if (!use.isTaken || use.calls <= socketCalls) {
        use.vainPolls = 0;
        use.vainTime = {};
        return use;
    }
    use.memoryCalls = use.calls - socketCalls;
    return use;
}

std::optional<std::string> FakeSystem::Variable(const char* name) const {
    const auto found = variables.find(name);
    return found == variables.end() ? std::nullopt : std::optional<std::string>(found->second);
}

vd::RuntimeDirectoryDiagnosis FakeSystem::RuntimeDirectory(
    const std::vector<std::string>& /*services*/) const {
    return runtimeDirectory;
}

std::string FakeSystem::UserName(uid_t id) const {
    const auto found = names.find(id);
    return found == names.end() ? std::string() : found->second;
}

void FakeSystem::MakeSound() {
    runtimeDirectory = {"ZAM_RUNTIME_DIR",
                        {"/run/fake", vd::FileFault::None, {}, user, 0700},
                        {{"/run/fake/fake_service.sock", vd::FileFault::None, {}, user, 0600}}};
}

void FakeSystem::LoseDirectory() {
    runtimeDirectory.directory = {"/run/fake", vd::FileFault::Missing, "No such file or directory",
                                  0, 0};
    runtimeDirectory.sockets.clear();
}

void LogError(const std::string& text) noexcept {
    zor::logger::ZORLogger::RootLogger().LogImpl(zor::logger::kLevelError, "fakes", 1, "LogError",
                                                 text);
}

}  // namespace zamctl::test
