#include "support/real_subscribers.h"

#include "common/unique_data_queue.h"
#include "data_handler/data_handler.h"
#include "data_handler/data_subscriber.h"
#include "data_handler/zam_conn_state_processor.h"
#include "data_handler/zam_conn_state_provider.h"
#include "data_handler/zam_data_processor.h"
#include "data_handler/zam_data_provider.h"
#include "proxy_init.h"
#include "qor/utils/blocking_queue.h"
#include "qx/endpoint_names.h"

namespace zam_connector::test {
namespace {

template <typename Record>
Record MakeRecord(void (*init)(Record*, VdZorTransport*, std::uint16_t), VdZorTransport& transport,
                  const char* endpoint) {
    Record record{};
    init(&record, &transport, proxy::init::GetEndpointRiid(transport.handle, endpoint));
    return record;
}

/// A pipeline whose notices come from `Provider`, with the proxy in front of it.
template <typename Proxy, typename T, typename Manager, template <typename> class Queue,
          typename Provider, typename Record>
std::shared_ptr<Proxy> MakePipeline(
    VdZorTransport& transport, const Record& record,
    std::unique_ptr<proxy::IDataProcessorFactory<T, Manager>> factory) {
    VdZorTransport_SetFarewell(&transport, record.riid, 2);
    return std::make_shared<Proxy>(std::make_shared<proxy::DataHandler<T, Manager, Queue>>(
        std::make_unique<proxy::DataSubscriber<T, Queue>>(std::make_unique<Provider>(record)),
        std::move(factory)));
}

}  // namespace

RealSubscribers::RealSubscribers() {
    VdZorTransport_Init(transport_.get(), proxy::init::ConnectIpcService(qx::kConnectorService), 0,
                        0);
    dataProvider_ = std::make_shared<proxy::ZamDataProviderProxy>(MakeRecord(
        &qx_zam_connector_ZamDataProvider_proxy_init, *transport_, qx::kZamDataProviderEndpoint));
    states_ = MakePipeline<proxy::ZamConnStateSubscriberProxy, int, proxy::IZamConnStateManager,
                           qor::utils::BlockingQueue, proxy::ZamConnStateProvider>(
        *transport_,
        MakeRecord(&qx_zam_connector_ConnStateNotifier_proxy_init, *transport_,
                   qx::kConnStateNotifierEndpoint),
        std::make_unique<proxy::ZamConnStateProcessorFactory>());
    data_ = MakePipeline<proxy::ZamDataChangeSubscriberProxy, unsigned int, proxy::IZamDataManager,
                         common::UniqueDataQueue, proxy::ZamDataProvider>(
        *transport_,
        MakeRecord(&qx_zam_connector_ZamDataNotifier_proxy_init, *transport_,
                   qx::kZamDataNotifierEndpoint),
        std::make_unique<proxy::ZamDataProcessorFactory>(dataProvider_));
}

RealSubscribers::~RealSubscribers() {
    dynamic_cast<proxy::IPipelineOwner&>(*states_).KeepForThreads(transport_);
    dynamic_cast<proxy::IPipelineOwner&>(*data_).KeepForThreads(transport_);
    states_.reset();
    data_.reset();
    dataProvider_.reset();
    transport_.reset();
    transportGone_.get_future().wait();
}

}  // namespace zam_connector::test
