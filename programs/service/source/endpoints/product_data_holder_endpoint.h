#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "channels/channel_ids.h"
#include "channels/channel_table.h"
#include "channels/rebuild_meter.h"
#include "channels/upload_quota.h"
#include "data/upload_store.h"
#include "faults/fault_witness.h"
#include "zam_platform/server/endpoint.h"
#include "zam_platform/server/server.h"

namespace zam_service {

/// Serves ProductDataHolder: takes what the product tells about itself. Nothing is stored of a
/// transfer that did not come whole.
class ProductDataHolderEndpoint final : public zam_platform::EndpointHandler, public FaultWitness {
public:
    /// None of them is owned; all must outlive this object.
    ProductDataHolderEndpoint(zam_platform::Server& server, ChannelIds& ids,
                              ChannelQuota& channelQuota, UploadStore& uploads,
                              ChannelLimits limits = {}, UploadQuota quota = UploadQuota());

    void OnCall(const zam_platform::Request& request, zam_platform::Responder responder) override;

    /// A piece that met with a fault may be lost, or its client takes it for lost: the transfer is
    /// not whole any more.
    void OnFault(const zam_platform::Request& request) override;

    /// A connection of the client broke. When a piece was lost with it, its transfer is not whole
    /// any more; when nobody can tell what was lost, none of those under way is.
    void OnConnectionBroken(const zam_platform::SessionToken& client,
                            const zam_platform::LostCall& lost);

    /// Ends the channels of a client that has gone; what it has not closed is forgotten.
    void EndSession(const zam_platform::SessionToken& client) { channels_.EndSession(client); }

    /// Channels that are open.
    std::size_t ChannelCount() const noexcept { return channels_.Count(); }

private:
    struct Channel {
        explicit Channel(UploadStore& store) noexcept : uploads(&store) {}
        Channel(Channel&&) = default;
        Channel& operator=(Channel&&) = delete;
        ~Channel() { uploads->Discard(std::move(upload)); }

        UploadStore* uploads;
        TreeUpload upload;
        RebuildMeter meter;
        bool hasFailed = false;  ///< it cannot be stored
        std::string failure;     ///< why not, where there was memory to say so
    };

    void SetAppInfo(const zam_platform::Request& request, zam_platform::Responder responder);
    void SetAppInfoDynamic(const zam_platform::Request& request, zam_platform::Responder responder);
    void Open(const zam_platform::Request& request, zam_platform::Responder responder,
              UploadKind kind);
    std::int8_t SendData(const zam_platform::Request& request);
    void CloseChannel(const zam_platform::Request& request, zam_platform::Responder responder);
    std::int8_t Fail(Channel& channel, std::int8_t status, std::string_view why);

    zam_platform::Server& server_;
    UploadStore& uploads_;
    UploadQuota quota_;
    ChannelTable<Channel> channels_;
};

}  // namespace zam_service
