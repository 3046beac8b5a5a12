#pragma once

#include <gtest/gtest.h>

#include <cstdint>

#include "qx/endpoint_names.h"
#include "qx/product_data_holder.h"
#include "qx/zam_data_provider.h"
#include "vd/service_locator.h"

namespace zam_connector::test {

/// Which channels this process has at the service, asked operation by operation: its connections
/// belong to the same client as those of the proxies. The service numbers channels one after the
/// other, whatever they are for.
class TransferChannels {
public:
    TransferChannels() {
        const std::uint32_t handle = ServiceLocatorConnect(qx::kConnectorService);
        VdZorTransport_Init(&transport_, handle, 0, 0);
        qx_zam_connector_ZamDataProvider_proxy_init(
            &provider_, &transport_, ServiceLocatorGetRiid(handle, qx::kZamDataProviderEndpoint));
        qx_zam_connector_ProductDataHolder_proxy_init(
            &holder_, &transport_, ServiceLocatorGetRiid(handle, qx::kProductDataHolderEndpoint));
    }

    /// Whether the channel that was opened last is a tree's and open. It is closed then.
    bool IsLastTreeOpen() {
        return Close<qx::SessionResponse>(provider_, provider_.ops->CloseChannel, Last())
                   .sessionStatus == 0;
    }
    bool IsLastUpdatesStatusOpen() {
        return Close<qx::SessionResponse>(provider_, provider_.ops->CloseZamUpdatesStatusChannel,
                                          Last())
                   .sessionStatus == 0;
    }
    bool IsLastUploadOpen() {
        return Close<qx_zam_connector_ProductDataHolder_CloseChannel_rsp>(
                   holder_, holder_.ops->CloseChannel, Last())
                   .sessionStatus == 0;
    }

    /// Channels that were opened since the service was started.
    std::int64_t OpenedSinceStart() {
        // The numbers of each run begin at a multiple of this.
        constexpr std::int64_t kNumbersOfARun = std::int64_t{1} << 32;
        return Last() % kNumbersOfARun;
    }

    /// Opens a channel for settings.
    std::int64_t OpenUpload() { return Open(holder_, holder_.ops->OpenSetSettingsChannel); }

    /// The code of the close.
    int CloseUpload(std::int64_t channel) {
        return Close<qx_zam_connector_ProductDataHolder_CloseChannel_rsp>(
                   holder_, holder_.ops->CloseChannel, channel)
            .resultCode;
    }

private:
    /// The channel that was opened last before this one.
    std::int64_t Last() {
        const std::int64_t next = Open(provider_, provider_.ops->OpenSettingsChannel);
        Close<qx::SessionResponse>(provider_, provider_.ops->CloseChannel, next);
        return next - 1;
    }

    template <typename Proxy, typename Operation>
    static std::int64_t Open(const Proxy& proxy, Operation operation) {
        qx::EmptyRequest request{};
        qx::OpenChannelResponse response{};
        EXPECT_EQ(operation(&proxy, &request, nullptr, &response, nullptr), 0);
        EXPECT_EQ(response.sessionStatus, 0);
        return response.channel;
    }

    template <typename Response, typename Proxy, typename Operation>
    static Response Close(const Proxy& proxy, Operation operation, std::int64_t channel) {
        qx::ChannelRequest request{};
        request.channel = channel;
        Response response{};
        EXPECT_EQ(operation(&proxy, &request, nullptr, &response, nullptr), 0);
        return response;
    }

    VdZorTransport transport_{};
    qx_zam_connector_ZamDataProvider_proxy provider_{};
    qx_zam_connector_ProductDataHolder_proxy holder_{};
};

}  // namespace zam_connector::test
