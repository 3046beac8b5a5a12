#pragma once

#include <future>
#include <memory>

#include "vd/zor_transport.h"
#include "zam_conn_state_subscriber_proxy.h"
#include "zam_data_change_subscriber_proxy.h"
#include "zam_data_provider_proxy.h"

namespace zam_connector::test {

/// Both subscribers over one transport to the connector service of the runtime directory in force,
/// as a connector has them: the transport goes with the last thread that still uses it. Thread-safe
/// as its interfaces are.
class RealSubscribers {
public:
    /// Throws `qel::CheckFailedException` when the service or one of its endpoints is not there.
    RealSubscribers();
    RealSubscribers(const RealSubscribers&) = delete;
    RealSubscribers& operator=(const RealSubscribers&) = delete;
    /// Waits until the library's last thread has let go of the transport: what the threads use, as
    /// the root logger, may go after this. Not to be called by an observer.
    ~RealSubscribers();

    const std::shared_ptr<IZamDataProvider>& DataProvider() { return dataProvider_; }
    const std::shared_ptr<IZamConnStateSubscriber>& States() { return states_; }
    const std::shared_ptr<IZamDataChangeSubscriber>& Data() { return data_; }

private:
    std::promise<void> transportGone_;
    std::shared_ptr<VdZorTransport> transport_{new VdZorTransport{},
                                               [this](const VdZorTransport* transport) {
                                                   delete transport;
                                                   transportGone_.set_value();
                                               }};
    std::shared_ptr<IZamDataProvider> dataProvider_;
    std::shared_ptr<IZamConnStateSubscriber> states_;
    std::shared_ptr<IZamDataChangeSubscriber> data_;
};

}  // namespace zam_connector::test
