#pragma once

#include <array>
#include <asio/io_context.hpp>
#include <cstddef>

#include "channels/channel_ids.h"
#include "channels/channel_table.h"
#include "data/provider_data.h"
#include "data/upload_store.h"
#include "zam_platform/server/endpoint.h"

namespace zam_service {

/// Serves ZamDataProvider: what the management server delivered, and hashes of it. A transfer goes
/// on with the version that it began with.
class ZamDataProviderEndpoint final : public zam_platform::EndpointHandler {
public:
    /// None of them is owned; all must outlive this object.
    ZamDataProviderEndpoint(asio::io_context& loop, ChannelIds& ids, ChannelQuota& quota,
                            const ProviderData& data, const UploadStore& uploads,
                            ChannelLimits limits = {});

    void OnCall(const zam_platform::Request& request, zam_platform::Responder responder) override;

    /// Ends the channels of a client that has gone.
    void EndSession(const zam_platform::SessionToken& client);

    /// Channels that are open.
    std::size_t ChannelCount() const noexcept { return trees_.Count() + updates_.Count(); }

private:
    struct TreeChannel {
        TreeSnapshotPtr tree;
        int result = 0;
        std::size_t nextPiece = 0;
    };
    struct UpdatesChannel {
        UpdatesSnapshotPtr updates;
        std::array<std::size_t, kUpdateKinds> nextId{};
    };

    void OpenTree(const zam_platform::Request& request, zam_platform::Responder responder,
                  const TreeSnapshotPtr& tree, int result);
    void GetData(const zam_platform::Request& request, zam_platform::Responder responder);
    void GetZamHash(const zam_platform::Request& request, zam_platform::Responder responder);
    void GetZamResult(const zam_platform::Request& request, zam_platform::Responder responder);
    void GetSubscriptions(zam_platform::Responder responder) const;
    void GetZamServerData(zam_platform::Responder responder) const;
    void GetZamReserveCert(zam_platform::Responder responder) const;
    void OpenUpdates(const zam_platform::Request& request, zam_platform::Responder responder);
    void GetUpdatesStatus(const zam_platform::Request& request, zam_platform::Responder responder);

    template <typename Content>
    static void Close(ChannelTable<Content>& channels, const zam_platform::Request& request,
                      zam_platform::Responder responder);

    const ProviderData& data_;
    const UploadStore& uploads_;
    ChannelTable<TreeChannel> trees_;
    ChannelTable<UpdatesChannel> updates_;
};

}  // namespace zam_service
