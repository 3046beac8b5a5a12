#pragma once

#include <chrono>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "clock.h"
#include "connector_provider.h"
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

    void Advance(std::chrono::nanoseconds duration) { now_ += duration; }

    std::vector<std::chrono::nanoseconds> sleeps;
    std::optional<std::size_t> interruptAtSleep;
    bool catching = false;
    bool interrupted = false;

private:
    TimePoint now_{};
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

/// A connector of fakes, or none.
class FakeProvider final : public ConnectorProvider {
public:
    explicit FakeProvider(FakeClock& clock) : controller(clock) {}

    std::string ServiceName() const override { return "fake_service"; }
    ConnectorInterfaces Open() override;
    std::vector<EndpointReport> Endpoints() override;

    FakeController controller;
    FakeSettingsHolder settingsHolder;
    FakeCommandSender commandSender;

    std::string noService;        ///< when not empty, why there is no service
    std::string missingEndpoint;  ///< when not empty, the endpoint that is not there
    std::string logged;           ///< when not empty, what is logged before a throw
    int opens = 0;
};

/// A machine that has what it is told to have.
class FakeSystem final : public SystemView {
public:
    std::optional<std::string> Variable(const char* name) const override;
    FileLook Look(const std::string& path) const override;
    uid_t User() const override { return user; }
    std::string UserName(uid_t id) const override;
    std::optional<uid_t> ServiceUser() const override { return serviceUser; }
    std::vector<LoadedLibrary> Libraries() const override { return libraries; }

    /// Sets everything up as it is when the service runs in `/run/fake`.
    void MakeSound();

    std::map<std::string, std::string> variables;
    std::map<std::string, FileStatus> files;
    std::map<std::string, std::string> unreadable;  ///< path to the system's text
    std::map<uid_t, std::string> names{{0, "root"}};
    uid_t user = 1000;
    std::optional<uid_t> serviceUser;
    std::vector<LoadedLibrary> libraries;
};

/// Writes a record to the root logger, as the library does on a failure.
void LogError(const std::string& text) noexcept;

}  // namespace zamctl::test
