#include "link/connector_link.h"

#include <algorithm>
#include <cstdint>
#include <new>
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
using zam_connector::common::Here;
using zam_connector::common::Log;

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
    : history_(history), alarm_(loop, [this] { Advance(); }) {}

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
    std::string line = Line("start")
                           .Add("server_address", parameters.serverAddress)
                           .Add("server_port", parameters.serverPort)
                           .Add("product_name", parameters.productName)
                           .Add("device_name", parameters.deviceName)
                           .Add("proxy_url", ProxyWithoutCredentials(parameters.proxyUrl))
                           .Add("connect_timeout_ms", Milliseconds(parameters.connectTimeout))
                           .Add("request_timeout_ms", Milliseconds(parameters.requestTimeout))
                           .Add("keep_alive_period_ms", Milliseconds(parameters.keepAlivePeriod))
                           .Text();
    parameters_ = parameters;
    simulator_.Start(LinkSimulator::TimePoint::clock::now());
    history_.Append(std::move(line), nullptr, user);
    Advance(user);
    return kNoError;
}

int ConnectorLink::Stop(uid_t user) {
    if (simulator_.IsDown()) {
        return kFalse;
    }
    std::string line = Line("stop").Text();
    simulator_.Stop(LinkSimulator::TimePoint::clock::now());
    history_.Append(std::move(line), nullptr, user);
    if (sync_.Drop()) {
        Record(user, [this] { return Line("sync_dropped"); });
    }
    // They may hold a password, which is needed no longer.
    parameters_ = {};
    Advance(user);
    return kNoError;
}

void ConnectorLink::ScheduleSync(uid_t user, const History::Done& done) {
    const std::optional<SyncSchedule::Ticket> ticket = sync_.Add();
    if (!ticket) {
        done(kFalse);
        return;
    }
    try {
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
    } catch (const std::bad_alloc&) {
        sync_.Cancel(*ticket);
        throw;
    }
}

void ConnectorLink::Close() {
    isClosed_ = true;
    alarm_.Cancel();
}

void ConnectorLink::Advance(std::optional<uid_t> user) noexcept {
    const auto now = LinkSimulator::TimePoint::clock::now();
    while (const std::optional<ZamConnectorState> state = simulator_.Advance(now)) {
        Log(zor::logger::kLevelInformation, Here(kSourceFile, "Advance"), "link is {}",
            zam_vocabulary::StateName(*state));
        Record(user, [&] { return Line("state").Add("state", zam_vocabulary::StateName(*state)); });
        if (onState_) {
            onState_(*state);
        }
    }
    const bool isConnected = simulator_.State() == ZamConnectorState::Connected;
    if (sync_.Advance(isConnected, simulator_.Plan().sync, now)) {
        Record({}, [this] { return Line("sync"); });
    }
    Arm();
}

/// What the link does by itself happens, whether there is memory to write it down or not.
template <typename Make>
void ConnectorLink::Record(std::optional<uid_t> user, Make line) noexcept {
    try {
        history_.Append(line().Text(), nullptr, user);
    } catch (const std::bad_alloc&) {
        Log(zor::logger::kLevelError, Here(kSourceFile, "Record"), "line dropped: out of memory");
    }
}

void ConnectorLink::Arm() noexcept {
    std::optional<LinkSimulator::TimePoint> next = simulator_.NextStep();
    if (sync_.Due()) {
        next = next ? std::min(*next, *sync_.Due()) : sync_.Due();
    }
    if (!next || isClosed_) {
        alarm_.Cancel();
        return;
    }
    alarm_.RingAt(*next);
}

HistoryLine ConnectorLink::Line(std::string_view kind) const {
    return {kind, std::chrono::system_clock::now()};
}

}  // namespace zam_service
