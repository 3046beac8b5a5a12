#pragma once

#include <sys/types.h>

#include <asio/io_context.hpp>
#include <chrono>
#include <functional>
#include <optional>
#include <utility>

#include "data/history.h"
#include "data/history_line.h"
#include "link/connection_plan.h"
#include "link/link_simulator.h"
#include "link/sync_schedule.h"
#include "zam_connector/zam_connection_parameters.h"
#include "zam_platform/server/alarm.h"

namespace zam_service {

/// The link as clients steer it: the simulator and the pending synchronisation, driven by a timer,
/// with everything that happens in the history. `user` is whose client calls: the history's lines
/// are its. On the loop thread only.
class ConnectorLink {
public:
    /// Neither is owned; both must outlive this object.
    ConnectorLink(asio::io_context& loop, History& history);

    /// Takes a new plan: for the next start or stop, and for synchronisations at once.
    void SetPlan(ConnectionPlan plan);

    /// Starts the link. 1 when it is started with equal parameters, "Invalid state" when with
    /// others, "Invalid argument" without a server address and port, and whatever the plan
    /// prescribes. What throws `std::bad_alloc` has done nothing, here and in the other calls.
    int Start(uid_t user, const zam_connector::ZamConnectionParameters& parameters);

    /// Stops the link and drops the pending synchronisation. 1 when there is nothing to stop.
    int Stop(uid_t user);

    zam_connector::ZamConnectorState State() const noexcept { return simulator_.State(); }

    /// Called with every state that the link enters; must not throw.
    void OnState(std::function<void(zam_connector::ZamConnectorState)> observer) {
        onState_ = std::move(observer);
    }

    /// Makes a synchronisation pending. `done` is told 0 when that is in the history, 1 when one
    /// is pending already, or why the history could not be written.
    void ScheduleSync(uid_t user, const History::Done& done);

    /// Lets nothing happen by itself any more.
    void Close();

private:
    void Advance(std::optional<uid_t> user = {}) noexcept;
    void Arm() noexcept;
    template <typename Make>
    void Record(std::optional<uid_t> user, Make line) noexcept;
    HistoryLine Line(std::string_view kind) const;

    History& history_;
    zam_platform::Alarm alarm_;
    LinkSimulator simulator_;
    SyncSchedule sync_;
    std::function<void(zam_connector::ZamConnectorState)> onState_;
    zam_connector::ZamConnectionParameters parameters_;  ///< of the start in force
    bool isClosed_ = false;
};

}  // namespace zam_service
