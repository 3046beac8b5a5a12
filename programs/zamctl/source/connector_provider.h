#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "zam_connector/i_product_data_holder.h"
#include "zam_connector/i_zam_client_certs_downloader.h"
#include "zam_connector/i_zam_conn_command_sender.h"
#include "zam_connector/i_zam_conn_controller.h"
#include "zam_connector/i_zam_conn_settings_holder.h"
#include "zam_connector/i_zam_conn_state_subscriber.h"
#include "zam_connector/i_zam_data_change_subscriber.h"
#include "zam_connector/i_zam_data_provider.h"
#include "zam_connector/i_zam_file_downloader.h"
#include "zam_connector/i_zam_locale_info.h"
#include "zam_connector/i_zam_location_info.h"

namespace zamctl {

/// The interfaces that the commands call; owned by the provider that gave them.
struct ConnectorInterfaces {
    zam_connector::IZamConnController& controller;
    zam_connector::IZamConnSettingsHolder& settingsHolder;
    zam_connector::IZamConnStateSubscriber& stateSubscriber;
    zam_connector::IZamConnCommandSender& commandSender;
    zam_connector::IZamDataProvider& dataProvider;
    zam_connector::IZamDataChangeSubscriber& dataChangeSubscriber;
    zam_connector::IProductDataHolder& productDataHolder;
    zam_connector::IZamFileDownloader& fileDownloader;
    zam_connector::IZamClientCertsDownloader& certsDownloader;
    const zam_connector::zam_locale::IZamLocaleInfo& localeInfo;
    const zam_connector::zam_locale::IZamLocationInfo& locationInfo;
};

/// One endpoint of a service, and its interface id when the service knows it.
struct EndpointReport {
    std::string name;
    std::optional<std::uint16_t> riid;
};

/// The fast channel between this process and a service, and what calls have made of it so far.
struct FastChannelUse {
    bool isBuilt = false;             ///< the library has one
    bool isOn = false;                ///< and uses it in this process
    std::optional<bool> isOffered{};  ///< by the service; none when it has not been asked
    bool isTaken = false;             ///< memory is shared now
    std::uint64_t calls = 0;          ///< of this process to the service
    std::uint64_t memoryCalls = 0;    ///< those of them that went through memory
    std::uint64_t vainPolls = 0;      ///< looks for an answer that ended without it
    std::chrono::nanoseconds vainTime{0};
};

/// The connector cannot be made, because of one of the services.
class ServiceTrouble : public std::runtime_error {
public:
    ServiceTrouble(std::string service, const std::string& text)
        : std::runtime_error(text), service_(std::move(service)) {}

    const std::string& Service() const noexcept { return service_; }

private:
    std::string service_;
};

/// The service cannot be reached.
class UnreachableService final : public ServiceTrouble {
public:
    using ServiceTrouble::ServiceTrouble;
};

/// Something takes connections, or lets them wait, and answers nothing in time.
class SilentService final : public ServiceTrouble {
public:
    using ServiceTrouble::ServiceTrouble;
};

/// The service is there, but does not give an endpoint that the connector needs.
class MissingEndpoint final : public ServiceTrouble {
public:
    using ServiceTrouble::ServiceTrouble;
};

/// The library reported success and gave nothing.
class NothingReturned final : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Where the commands get the connector from. One thread at a time.
class ConnectorProvider {
public:
    virtual ~ConnectorProvider() = default;

    /// Names of the services that the connector needs, the connector service first.
    virtual std::vector<std::string> ServiceNames() const = 0;

    /// Makes the connector, once. Blocks while the services are connected to. Throws one of the
    /// exceptions above, or another `std::exception` that says why when it cannot be made.
    virtual ConnectorInterfaces Open() = 0;

    /// Looks every endpoint of a service up that the connector needs. Throws `UnreachableService`
    /// and `SilentService`.
    virtual std::vector<EndpointReport> Endpoints(const std::string& service) = 0;

    /// Of the calls to the connector service. The first call connects; throws
    /// `UnreachableService` and `SilentService`.
    virtual FastChannelUse FastChannel() = 0;
};

}  // namespace zamctl
