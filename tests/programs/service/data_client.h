#pragma once

#include <cstdint>
#include <iosfwd>
#include <utility>
#include <vector>

#include "common/raw_zam_param.h"
#include "data/content_hash.h"
#include "qx/product_data_holder.h"
#include "qx/zam_data_provider.h"
#include "result_codes.h"
#include "support/flattened.h"
#include "vd/zor_transport.h"
#include "zam_connector/app_info.h"
#include "zam_connector/zam_id.h"

namespace zam_service::testing {

using zam_test::Flattened;

using RawList = std::vector<zam_connector::common::RawZamParam>;

/// An answer to a call that did come; the test fails when it did not.
struct Piece {
    int status = -1;  ///< session status
    RawList records;
};

struct Ids {
    int status = -1;
    std::vector<zam_connector::ZamId> ids;
};

struct Closed {
    int status = -1;
    int code = -1;
    std::uint64_t hash = 0;
};

bool operator==(const Closed& left, const Closed& right);
std::ostream& operator<<(std::ostream& out, const Closed& closed);

/// What the close of an upload that was refused answers.
inline constexpr Closed kRefused{0, kInvalidArgument, kAbsentHash};

/// A client of the two endpoints for data, operation by operation: what no proxy does, it can.
/// Every call but one in vain must be answered, or else the test fails.
class DataClient {
public:
    DataClient();

    std::int64_t OpenPolicy();
    std::int64_t OpenSettings();
    std::int64_t OpenSetSettings();
    std::int64_t OpenEulas();
    std::int64_t OpenUpdates();

    /// Opens a channel for updates that may be refused; the session status.
    int OpenStatus();

    /// Channel, and hash.
    std::pair<std::int64_t, std::uint64_t> OpenUpdatesStatus();

    Piece GetData(std::int64_t channel);

    /// Session status, and hash.
    std::pair<int, std::uint64_t> GetHash(std::int64_t channel);

    /// Session status, and result.
    std::pair<int, int> GetResult(std::int64_t channel);

    int Close(std::int64_t channel);
    Ids GetUpdatesStatus(std::int64_t channel, std::uint32_t kind);
    int CloseUpdatesStatus(std::int64_t channel);

    std::uint64_t PolicyHash();
    std::uint64_t SettingsHash();
    std::uint64_t SubscriptionHash();
    std::uint64_t UpdatesHash();
    std::uint64_t SyncedSettingsHash();

    int Send(std::int64_t channel, const RawList& records);
    int Send(const qx_zam_connector_ProductDataHolder_SendData_req& request, vd_arena* arena);

    /// Sends a piece of which no answer comes; the transport status.
    int SendInVain(std::int64_t channel, const RawList& records);

    Closed CloseUpload(std::int64_t channel);

    /// Closes it as one whose transfer has failed here.
    Closed AbandonUpload(std::int64_t channel);

    int SetAppInfo(const qx_zam_connector_ProductDataHolder_SetAppInfo_req& request,
                   vd_arena* arena);
    int SetAppInfo(const zam_connector::AppInfo& info);
    int SetAppInfoDynamic(const qx_zam_connector_ProductDataHolder_SetAppInfoDynamic_req& request);

private:
    VdZorTransport transport_{};
    qx_zam_connector_ZamDataProvider_proxy provider_{};
    qx_zam_connector_ProductDataHolder_proxy holder_{};
};

}  // namespace zam_service::testing
