#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "data_handler/i_data_handler.h"
#include "data_handler/i_pipeline_owner.h"
#include "data_handler/i_zam_conn_state_manager.h"
#include "observer_group.h"
#include "task_gate.h"
#include "zam_connector/i_zam_conn_state_subscriber.h"

namespace zam_connector::proxy {

/// `IZamConnStateSubscriber` over the pipeline of connection states. Always owned by a
/// `std::shared_ptr`; the pipeline refers to it weakly. Thread-safe.
///
/// Unlike its sibling for changed data it hands the result of a start on to the client, and does
/// not try again after a failure until the last subscription has gone.
class ZamConnStateSubscriberProxy final
    : public IZamConnStateSubscriber,
      public IZamConnStateManager,
      public IPipelineOwner,
      public std::enable_shared_from_this<ZamConnStateSubscriberProxy> {
public:
    /// Throws `qel::CheckFailedException` when there is no handler.
    explicit ZamConnStateSubscriberProxy(
        std::shared_ptr<IDataHandler<IZamConnStateManager>> handler);

    /// Stops the pipeline when it runs.
    ~ZamConnStateSubscriberProxy() override;

    int SubscribeOnStateChange(std::weak_ptr<IZamConnStateObserver> observer,
                               SubscriptionCookie& cookie) noexcept override;
    int Unsubscribe(const SubscriptionCookie& cookie) noexcept override;

    void SetZamConnectorState(ZamConnectorState state) override;

    void KeepForThreads(const std::shared_ptr<const void>& object) override;

private:
    enum class Task { Start, Stop };

    int PassGate(Task task);
    int Run(Task task);
    int Start();
    int StopWithoutObservers();

    const std::shared_ptr<IDataHandler<IZamConnStateManager>> handler_;
    std::atomic<std::uint64_t> cookieCounter_{0};
    ObserverGroup<ZamConnectorState> observers_{cookieCounter_};
    TaskGate<Task> taskGate_;      // never entered with the group's mutex held
    bool handlerStarted_ = false;  // belongs to who has the gate
};

}  // namespace zam_connector::proxy
