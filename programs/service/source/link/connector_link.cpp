#include "link/connector_link.h"

#include <algorithm>
#include <cstdint>
#include <tuple>
#include <utility>

#include "common/log.h"
#include "link/proxy_url.h"
#include "result_codes.h"
#include "vocabulary/state_names.h"

namespace zam_service {
namespace {

using zam_connector::ZamConnectionParameters;
using zam_connector::ZamConnectorState;

constexpr char kSourceFile[] = "connector_link";

auto AsTuple(const ZamConnectionParameters& parameters) {
    return std::tie(parameters.serverAddress, parameters.serverPort, parameters.productName,
                    parameters.deviceName, parameters.proxyUrl, parameters.connectTimeout,
                    parameters.requestTimeout, parameters.keepAlivePeriod);
}

/// Durations that came over the wire are not negative.
std::uint64_t Milliseconds(std::chrono::milliseconds duration) {
    return static_cast<std::uint64_t>(duration.count());
}

}  // namespace

ConnectorLink::ConnectorLink(asio::io_context& loop, History& history)
    : history_(history), timer_(loop) {}

void ConnectorLink::SetPlan(ConnectionPlan plan) {
    simulator_.SetPlan(std::move(plan));
}

int ConnectorLink::Start(uid_t user, const ZamConnectionParameters& parameters) {
    if (parameters.serverAddress.empty() || parameters.serverPort == 0) {
        return kInvalidArgument;
    }
    if (simulator_.Plan().startResult) {
        return *simulator_.Plan().startResult;
    }
    if (simulator_.IsStarted()) {
        return AsTuple(parameters) == AsTuple(parameters_) ? kFalse : kInvalidState;
    }
    parameters_ = parameters;
    history_.Append(Line("start")
                        .Add("server_address", parameters.serverAddress)
                        .Add("server_port", parameters.serverPort)
                        .Add("product_name", parameters.productName)
                        .Add("device_name", parameters.deviceName)
                        .Add("proxy_url", ProxyWithoutCredentials(parameters.proxyUrl))
                        .Add("connect_timeout_ms", Milliseconds(parameters.connectTimeout))
                        .Add("request_timeout_ms", Milliseconds(parameters.requestTimeout))
                        .Add("keep_alive_period_ms", Milliseconds(parameters.keepAlivePeriod))
                        .Text(),
                    nullptr, user);
    simulator_.Start(LinkSimulator::TimePoint::clock::now());
    Advance(user);
    return kNoError;
}

int ConnectorLink::Stop(uid_t user) {
    if (simulator_.IsDown()) {
        return kFalse;
    }
    history_.Append(Line("stop").Text(), nullptr, user);
    if (sync_.Drop()) {
        history_.Append(Line("sync_dropped").Text(), nullptr, user);
    }
    // They may hold a password, which is needed no longer.
    parameters_ = {};
    simulator_.Stop(LinkSimulator::TimePoint::clock::now());
    Advance(user);
    return kNoError;
}

void ConnectorLink::ScheduleSync(uid_t user, const History::Done& done) {
    const std::optional<SyncSchedule::Ticket> ticket = sync_.Add();
    if (!ticket) {
        done(kFalse);
        return;
    }
    const auto onWritten = [this, ticket = *ticket, done](int code) {
        if (code == kNoError) {
            sync_.Confirm(ticket);
            Advance();
        } else {
            sync_.Cancel(ticket);
        }
        done(code);
    };
    history_.Append(Line("sync_scheduled").Text(), onWritten, user);
}

void ConnectorLink::Close() {
    isClosed_ = true;
    timer_.cancel();
}

void ConnectorLink::Advance(std::optional<uid_t> user) {
    const auto now = LinkSimulator::TimePoint::clock::now();
    for (const ZamConnectorState state : simulator_.Advance(now)) {
        zam_connector::common::Log(zor::logger::kLevelInformation,
                                   zam_connector::common::Here(kSourceFile, "Advance"),
                                   "link is {}", zam_vocabulary::StateName(state));
        history_.Append(Line("state").Add("state", zam_vocabulary::StateName(state)).Text(),
                        nullptr, user);
        if (onState_) {
            onState_(state);
        }
    }
    const bool isConnected = simulator_.State() == ZamConnectorState::Connected;
    if (sync_.Advance(isConnected, simulator_.Plan().sync, now)) {
        history_.Append(Line("sync").Text(), nullptr);
    }
    Arm();
}

void ConnectorLink::Arm() {
    std::optional<LinkSimulator::TimePoint> next = simulator_.NextStep();
    if (sync_.Due()) {
        next = next ? std::min(*next, *sync_.Due()) : sync_.Due();
    }
    if (!next || isClosed_) {
        timer_.cancel();
        return;
    }
    timer_.expires_at(*next);
    timer_.async_wait([this](const std::error_code& error) {
        if (!error) {
            Advance();
        }
    });
}

HistoryLine ConnectorLink::Line(std::string_view kind) const {
    return {kind, std::chrono::system_clock::now()};
}

}  // namespace zam_service
