#include "library/zor_ipc/call_frame/connection_control_behaviours.h"

#include <cstdlib>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "history.h"
#include "support/real_connection.h"
#include "zam_connector_testing/service_process.h"

namespace zam_connector::test {
namespace {

struct OperationName {
    const char* endpoint;
    const char* operation;
};

OperationName NameOf(ConnectionControlOperation operation) {
    switch (operation) {
        case ConnectionControlOperation::Start:
            return {"connController", "Start"};
        case ConnectionControlOperation::Stop:
            return {"connController", "Stop"};
        case ConnectionControlOperation::GetState:
            return {"connController", "GetState"};
        case ConnectionControlOperation::Set:
            return {"connSettingsHolder", "Set"};
        case ConnectionControlOperation::Get:
            return {"connSettingsHolder", "Get"};
        case ConnectionControlOperation::PostZamEvent:
            return {"connCommandSender", "PostZamEvent"};
        case ConnectionControlOperation::ScheduleSync:
            return {"connCommandSender", "ScheduleSync"};
    }
    throw std::logic_error("no such operation");
}

const char* NameOf(ZamConnectorState state) {
    switch (state) {
        case ZamConnectorState::Stopped:
            return "stopped";
        case ZamConnectorState::Connecting:
            return "connecting";
        case ZamConnectorState::Connected:
            return "connected";
        case ZamConnectorState::WaitingForReconnect:
            return "waiting_for_reconnect";
        case ZamConnectorState::Stopping:
            return "stopping";
        case ZamConnectorState::Refused:
            return "refused";
    }
    throw std::logic_error("no such state");
}

/// The behaviours' peer is the real service in a process of its own. What it is told takes effect
/// by a restart, so that nothing has to be waited for.
class RealServiceHarness final : public ConnectionControlHarness {
public:
    static std::unique_ptr<ConnectionControlHarness> Make();

    RealServiceHarness();

    IZamConnController& Controller() override { return connection_->Controller(); }
    IZamConnSettingsHolder& SettingsHolder() override { return connection_->SettingsHolder(); }
    IZamConnCommandSender& CommandSender() override { return connection_->CommandSender(); }

    void AnswerWith(ConnectionControlOperation operation, int resultCode) override;
    std::vector<ZamConnectorState> States() const override;
    void ServeState(ZamConnectorState state) override;

    std::optional<ZamConnectionParameters> LastStart() override;
    int Starts() override;
    int Stops() override;
    std::vector<std::string> Events() override;
    int Synchronisations() override;

private:
    void Restart();

    /// A start and a stop are answered before they stand in the history; a service that ends in
    /// order writes what is due.
    void Flush();

    testing::ServiceProcess service_;
    std::unique_ptr<RealConnection> connection_;
    std::map<ConnectionControlOperation, int> answers_;
    std::optional<ZamConnectorState> served_;
};

std::unique_ptr<ConnectionControlHarness> RealServiceHarness::Make() {
    return std::make_unique<RealServiceHarness>();
}

RealServiceHarness::RealServiceHarness() : service_(ZAM_CONNECTORD) {
    ::setenv("ZAM_RUNTIME_DIR", service_.RuntimeDirectory().c_str(), 1);
    service_.Start();
    connection_ = std::make_unique<RealConnection>();
}

void RealServiceHarness::AnswerWith(ConnectionControlOperation operation, int resultCode) {
    answers_[operation] = resultCode;
    nlohmann::json rules = nlohmann::json::array();
    for (const auto& [answered, code] : answers_) {
        rules.push_back({{"endpoint", NameOf(answered).endpoint},
                         {"operation", NameOf(answered).operation},
                         {"when", "after"},
                         {"result_code", code}});
    }
    service_.WriteData("faults.json", nlohmann::json{{"rules", rules}}.dump());
    Restart();
}

std::vector<ZamConnectorState> RealServiceHarness::States() const {
    return {ZamConnectorState::Connected,  ZamConnectorState::WaitingForReconnect,
            ZamConnectorState::Connecting, ZamConnectorState::Refused,
            ZamConnectorState::Stopping,   ZamConnectorState::Stopped};
}

void RealServiceHarness::ServeState(ZamConnectorState state) {
    served_ = state;
    const nlohmann::json step = {{"state", NameOf(state)}, {"after_ms", 0}};
    service_.WriteData("connection.json", nlohmann::json{{"start", {step}}}.dump());
    Restart();
}

void RealServiceHarness::Restart() {
    service_.Kill();
    service_.Start();
    if (served_ && *served_ != ZamConnectorState::Stopped) {
        ZamConnectionParameters parameters;
        parameters.serverAddress = "served.example";
        parameters.serverPort = 1;
        Controller().Start(parameters);
        ZamConnectorState state{};
        do {
            Controller().GetState(state);
        } while (state != *served_);
    }
}

void RealServiceHarness::Flush() {
    service_.Stop();
    service_.Start();
}

std::optional<ZamConnectionParameters> RealServiceHarness::LastStart() {
    Flush();
    const std::vector<nlohmann::json> starts = HistoryOf(service_, "start");
    if (starts.empty()) {
        return std::nullopt;
    }
    const nlohmann::json& line = starts.back();
    ZamConnectionParameters parameters;
    parameters.serverAddress = line.at("server_address");
    parameters.serverPort = line.at("server_port");
    parameters.productName = line.at("product_name");
    parameters.deviceName = line.at("device_name");
    parameters.proxyUrl = line.at("proxy_url");
    parameters.connectTimeout = std::chrono::milliseconds(line.at("connect_timeout_ms"));
    parameters.requestTimeout = std::chrono::milliseconds(line.at("request_timeout_ms"));
    parameters.keepAlivePeriod = std::chrono::milliseconds(line.at("keep_alive_period_ms"));
    return parameters;
}

int RealServiceHarness::Starts() {
    Flush();
    return static_cast<int>(HistoryOf(service_, "start").size());
}

int RealServiceHarness::Stops() {
    Flush();
    return static_cast<int>(HistoryOf(service_, "stop").size());
}

std::vector<std::string> RealServiceHarness::Events() {
    return EventsOf(service_);
}

int RealServiceHarness::Synchronisations() {
    return static_cast<int>(HistoryOf(service_, "sync_scheduled").size());
}

INSTANTIATE_TEST_SUITE_P(RealService, ConnectionControlBehaviours,
                         ::testing::Values(&RealServiceHarness::Make));

}  // namespace
}  // namespace zam_connector::test
