#include "fakes.h"

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

ConnectorInterfaces FakeProvider::Open() {
    ++opens;
    if (!logged.empty()) {
        LogError(logged);
    }
    if (!noService.empty()) {
        throw std::runtime_error(noService);
    }
    if (!missingEndpoint.empty()) {
        throw MissingEndpoint("no riid for " + missingEndpoint);
    }
    return {controller, settingsHolder, commandSender};
}

std::vector<EndpointReport> FakeProvider::Endpoints() {
    if (!noService.empty()) {
        throw std::runtime_error(noService);
    }
    std::vector<EndpointReport> reports = {{"fake.controller", 1}, {"fake.settings", 2}};
    if (!missingEndpoint.empty()) {
        reports.push_back({missingEndpoint, std::nullopt});
    }
    return reports;
}

std::optional<std::string> FakeSystem::Variable(const char* name) const {
    const auto found = variables.find(name);
    return found == variables.end() ? std::nullopt : std::optional<std::string>(found->second);
}

FileLook FakeSystem::Look(const std::string& path) const {
    if (const auto refused = unreadable.find(path); refused != unreadable.end()) {
        return {std::nullopt, false, refused->second};
    }
    const auto found = files.find(path);
    if (found == files.end()) {
        return {std::nullopt, true, "No such file or directory"};
    }
    return {found->second, false, {}};
}

std::string FakeSystem::UserName(uid_t id) const {
    const auto found = names.find(id);
    return found == names.end() ? std::string() : found->second;
}

void FakeSystem::MakeSound() {
    variables["ZAM_RUNTIME_DIR"] = "/run/fake";
    files["/run/fake"] = {FileKind::Directory, user, 0700};
    files["/run/fake/fake_service.sock"] = {FileKind::Socket, user, 0600};
}

void LogError(const std::string& text) noexcept {
    zor::logger::ZORLogger::RootLogger().LogImpl(zor::logger::kLevelError, "fakes", 1, "LogError",
                                                 text);
}

}  // namespace zamctl::test
