#pragma once

#include <future>
#include <memory>
#include <utility>

#include "common/unique_data_queue.h"
#include "data_handler/data_handler.h"
#include "data_handler/data_subscriber.h"
#include "data_handler/zam_conn_state_processor.h"
#include "data_handler/zam_data_processor.h"
#include "library/zor_ipc/notification/scripted_provider.h"
#include "qor/utils/blocking_queue.h"
#include "zam_conn_state_subscriber_proxy.h"
#include "zam_connector_testing/recording_observer.h"
#include "zam_connector_testing/scripted_data_provider.h"
#include "zam_data_change_subscriber_proxy.h"

/// The two subscriber proxies with whole pipelines, whose notices come from the test.
namespace zam_connector::test {

using testing::RecordingObserver;

using PolicyChange = std::pair<std::uint64_t, ZamPolicy>;
using PolicyObserver = RecordingObserver<PolicyChange>;
using ServerDataObserver = RecordingObserver<ZamServerData>;
using StateObserver = RecordingObserver<ZamConnectorState>;

inline constexpr unsigned int kPolicyKind = 1;
inline constexpr unsigned int kServerDataKind = 4;

/// Tells when the handler threads that run when it is made have ended.
class ThreadsEnd {
public:
    explicit ThreadsEnd(proxy::IPipelineOwner& owner) {
        const std::shared_ptr<const void> held(this, [this](const void*) { ended_.set_value(); });
        owner.KeepForThreads(held);
    }

    bool Wait() {
        return future_.wait_for(testing::kObserverPatience) == std::future_status::ready;
    }

private:
    std::promise<void> ended_;
    std::future<void> future_ = ended_.get_future();
};

struct DataPipeline {
    std::shared_ptr<Notifier<unsigned int>> notifier = std::make_shared<Notifier<unsigned int>>();
    std::shared_ptr<testing::ScriptedDataProvider> data =
        std::make_shared<testing::ScriptedDataProvider>();
    std::shared_ptr<proxy::ZamDataChangeSubscriberProxy> proxy = Make(notifier, data);

    static std::shared_ptr<proxy::ZamDataChangeSubscriberProxy> Make(
        const std::shared_ptr<Notifier<unsigned int>>& notifier,
        const std::shared_ptr<IZamDataProvider>& data) {
        using Subscriber = proxy::DataSubscriber<unsigned int, common::UniqueDataQueue>;
        using Handler =
            proxy::DataHandler<unsigned int, proxy::IZamDataManager, common::UniqueDataQueue>;
        return std::make_shared<proxy::ZamDataChangeSubscriberProxy>(std::make_shared<Handler>(
            std::make_unique<Subscriber>(
                std::make_unique<ScriptedProvider<unsigned int>>(notifier)),
            std::make_unique<proxy::ZamDataProcessorFactory>(data)));
    }

    /// Sets the policy's hash and tells of it.
    void ChangePolicy(std::uint64_t hash) {
        testing::ScriptedDataProvider::Data changed = data->Get();
        changed.policy.first = hash;
        data->Set(std::move(changed));
        notifier->Tell(kPolicyKind);
    }
};

struct StatePipeline {
    std::shared_ptr<Notifier<int>> notifier = std::make_shared<Notifier<int>>();
    std::shared_ptr<proxy::ZamConnStateSubscriberProxy> proxy = Make(notifier);

    static std::shared_ptr<proxy::ZamConnStateSubscriberProxy> Make(
        const std::shared_ptr<Notifier<int>>& notifier) {
        using Subscriber = proxy::DataSubscriber<int, qor::utils::BlockingQueue>;
        using Handler =
            proxy::DataHandler<int, proxy::IZamConnStateManager, qor::utils::BlockingQueue>;
        return std::make_shared<proxy::ZamConnStateSubscriberProxy>(std::make_shared<Handler>(
            std::make_unique<Subscriber>(std::make_unique<ScriptedProvider<int>>(notifier)),
            std::make_unique<proxy::ZamConnStateProcessorFactory>()));
    }
};

}  // namespace zam_connector::test
