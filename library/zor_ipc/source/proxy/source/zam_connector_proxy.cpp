#include "zam_connector_proxy.h"

#include <utility>

#include "data_handler/i_pipeline_owner.h"
#include "qel/exception.h"
#include "qel/result_code.h"

namespace zam_connector::proxy {
namespace {

void Check(bool holds, int line) {
    if (!holds) {
        throw qel::InvalidArgumentException().At("zam_connector_proxy", line);
    }
}

/// Has the threads of a subscriber, if it has any, keep the transports that they talk through.
template <typename Subscriber>
void KeepForThreadsOf(Subscriber& subscriber, const std::shared_ptr<const void>& transports) {
    if (auto* const owner = dynamic_cast<IPipelineOwner*>(&subscriber)) {
        owner->KeepForThreads(transports);
    }
}

}  // namespace

/// Destroys them in order, which a vector does not promise.
class ZamConnectorProxy::Transports {
public:
    explicit Transports(std::vector<std::unique_ptr<VdZorTransport>> transports) noexcept
        : transports_(std::move(transports)) {}
    Transports(const Transports&) = delete;
    Transports& operator=(const Transports&) = delete;
    ~Transports() {
        for (std::unique_ptr<VdZorTransport>& transport : transports_) {
            transport.reset();
        }
    }

    const std::vector<std::unique_ptr<VdZorTransport>>& All() const noexcept { return transports_; }

    /// Gives them up for good.
    void Leak() noexcept {
        for (std::unique_ptr<VdZorTransport>& transport : transports_) {
            static_cast<void>(transport.release());
        }
    }

private:
    std::vector<std::unique_ptr<VdZorTransport>> transports_;
};

ZamConnectorProxy::ZamConnectorProxy(
    std::vector<std::unique_ptr<VdZorTransport>> transports,
    std::shared_ptr<IZamConnController> controller,
    std::shared_ptr<IZamConnSettingsHolder> settingsHolder,
    std::shared_ptr<IZamConnStateSubscriber> stateSubscriber,
    std::shared_ptr<IZamConnCommandSender> commandSender,
    std::shared_ptr<IZamDataProvider> dataProvider,
    std::shared_ptr<IZamDataChangeSubscriber> dataChangeSubscriber,
    std::shared_ptr<IProductDataHolder> productDataHolder,
    std::shared_ptr<IZamFileDownloader> fileDownloader,
    std::shared_ptr<zam_locale::IZamLocaleInfo> localeInfo,
    std::shared_ptr<zam_locale::IZamLocationInfo> locationInfo,
    std::shared_ptr<IZamClientCertsDownloader> clientCertsDownloader)
    : transports_(std::make_shared<Transports>(std::move(transports))),
      controller_(std::move(controller)),
      settingsHolder_(std::move(settingsHolder)),
      stateSubscriber_(std::move(stateSubscriber)),
      commandSender_(std::move(commandSender)),
      dataProvider_(std::move(dataProvider)),
      dataChangeSubscriber_(std::move(dataChangeSubscriber)),
      productDataHolder_(std::move(productDataHolder)),
      fileDownloader_(std::move(fileDownloader)),
      localeInfo_(std::move(localeInfo)),
      locationInfo_(std::move(locationInfo)),
      clientCertsDownloader_(std::move(clientCertsDownloader)) {
    CheckTransports();
    CheckInterfaces();
}

ZamConnectorProxy::~ZamConnectorProxy() {
    try {
        KeepForThreadsOf(*stateSubscriber_, transports_);
        KeepForThreadsOf(*dataChangeSubscriber_, transports_);
    } catch (...) {
        transports_->Leak();  // no memory: a thread may still need them
    }
}

void ZamConnectorProxy::CheckTransports() const {
    for (const std::unique_ptr<VdZorTransport>& transport : transports_->All()) {
        Check(transport != nullptr, 39);
        Check(transport->ops != nullptr, 40);
        Check(transport->handle != VD_ZOR_INVALID_HANDLE, 41);
    }
}

void ZamConnectorProxy::CheckInterfaces() const {
    Check(controller_ != nullptr, 43);
    Check(settingsHolder_ != nullptr, 44);
    Check(stateSubscriber_ != nullptr, 45);
    Check(commandSender_ != nullptr, 46);
    Check(dataProvider_ != nullptr, 47);
    Check(dataChangeSubscriber_ != nullptr, 48);
    Check(productDataHolder_ != nullptr, 49);
    Check(fileDownloader_ != nullptr, 50);
    Check(localeInfo_ != nullptr, 51);
    Check(locationInfo_ != nullptr, 52);
    Check(clientCertsDownloader_ != nullptr, 53);
}

int ZamConnectorProxy::GetZamController(std::shared_ptr<IZamConnController>& controller) noexcept {
    controller = controller_;
    return qel::kNoError;
}

int ZamConnectorProxy::GetSettingsHolder(
    std::shared_ptr<IZamConnSettingsHolder>& settingsHolder) noexcept {
    settingsHolder = settingsHolder_;
    return qel::kNoError;
}

int ZamConnectorProxy::GetStateChangeSubscriber(
    std::shared_ptr<IZamConnStateSubscriber>& stateSubscriber) noexcept {
    stateSubscriber = stateSubscriber_;
    return qel::kNoError;
}

int ZamConnectorProxy::GetCommandSender(
    std::shared_ptr<IZamConnCommandSender>& commandSender) noexcept {
    commandSender = commandSender_;
    return qel::kNoError;
}

int ZamConnectorProxy::GetDataProvider(std::shared_ptr<IZamDataProvider>& dataProvider) noexcept {
    dataProvider = dataProvider_;
    return qel::kNoError;
}

int ZamConnectorProxy::GetDataChangeSubscriber(
    std::shared_ptr<IZamDataChangeSubscriber>& dataChangeSubscriber) noexcept {
    dataChangeSubscriber = dataChangeSubscriber_;
    return qel::kNoError;
}

int ZamConnectorProxy::GetProductDataHolder(
    std::shared_ptr<IProductDataHolder>& productDataHolder) noexcept {
    productDataHolder = productDataHolder_;
    return qel::kNoError;
}

int ZamConnectorProxy::GetFileDownloader(
    std::shared_ptr<IZamFileDownloader>& fileDownloader) noexcept {
    fileDownloader = fileDownloader_;
    return qel::kNoError;
}

int ZamConnectorProxy::GetZamLocaleInfo(
    std::shared_ptr<zam_locale::IZamLocaleInfo>& localeInfo) noexcept {
    localeInfo = localeInfo_;
    return qel::kNoError;
}

int ZamConnectorProxy::GetZamLocationInfo(
    std::shared_ptr<zam_locale::IZamLocationInfo>& locationInfo) noexcept {
    locationInfo = locationInfo_;
    return qel::kNoError;
}

int ZamConnectorProxy::GetClientCertsDownloader(
    std::shared_ptr<IZamClientCertsDownloader>& clientCertsDownloader) noexcept {
    clientCertsDownloader = clientCertsDownloader_;
    return qel::kNoError;
}

}  // namespace zam_connector::proxy
