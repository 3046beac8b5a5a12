#pragma once

#include "qx/messages.h"
#include "qx/zam_types.h"

using qx_zam_connector_ZamDataProvider_OpenPolicyChannel_req = qx::EmptyRequest;
using qx_zam_connector_ZamDataProvider_OpenPolicyChannel_rsp = qx::OpenChannelResponse;

using qx_zam_connector_ZamDataProvider_OpenSettingsChannel_req = qx::EmptyRequest;
using qx_zam_connector_ZamDataProvider_OpenSettingsChannel_rsp = qx::OpenChannelResponse;

// A status of 1 with the last piece spares a call that would only tell that there is no more.
using qx_zam_connector_ZamDataProvider_GetData_req = qx::ChannelRequest;
struct qx_zam_connector_ZamDataProvider_GetData_rsp {
    vd_message_header header;
    qx_zam_connector_ZamTypes_ZamParams params;
    std::int8_t sessionStatus;
    std::uint8_t reserved[7];
};
QX_FIELD(qx_zam_connector_ZamDataProvider_GetData_rsp, params, 24);
QX_FIELD(qx_zam_connector_ZamDataProvider_GetData_rsp, sessionStatus, 32);
QX_FIELD(qx_zam_connector_ZamDataProvider_GetData_rsp, reserved, 33);

// The hash of what went through this channel, which need not be that of the data by now.
using qx_zam_connector_ZamDataProvider_GetZamHash_req = qx::ChannelRequest;
struct qx_zam_connector_ZamDataProvider_GetZamHash_rsp {
    vd_message_header header;
    std::uint64_t hash;
    std::int8_t sessionStatus;
    std::uint8_t reserved[7];
};
QX_FIELD(qx_zam_connector_ZamDataProvider_GetZamHash_rsp, hash, 24);
QX_FIELD(qx_zam_connector_ZamDataProvider_GetZamHash_rsp, sessionStatus, 32);
QX_FIELD(qx_zam_connector_ZamDataProvider_GetZamHash_rsp, reserved, 33);

using qx_zam_connector_ZamDataProvider_GetZamResult_req = qx::ChannelRequest;
/// `result` is what the transfer gives its caller; the outcome of the call itself is the status.
/// The name is another than `resultCode` for that reason.
struct qx_zam_connector_ZamDataProvider_GetZamResult_rsp {
    vd_message_header header;
    std::int32_t result;
    std::int8_t sessionStatus;
    std::uint8_t reserved[3];
};
QX_FIELD(qx_zam_connector_ZamDataProvider_GetZamResult_rsp, result, 24);
QX_FIELD(qx_zam_connector_ZamDataProvider_GetZamResult_rsp, sessionStatus, 28);
QX_FIELD(qx_zam_connector_ZamDataProvider_GetZamResult_rsp, reserved, 29);

using qx_zam_connector_ZamDataProvider_CloseChannel_req = qx::ChannelRequest;
using qx_zam_connector_ZamDataProvider_CloseChannel_rsp = qx::SessionResponse;

using qx_zam_connector_ZamDataProvider_GetSubscriptions_req = qx::EmptyRequest;
struct qx_zam_connector_ZamDataProvider_GetSubscriptions_rsp {
    vd_message_header header;
    qx_zam_connector_ZamTypes_ZamSubscriptionsWithHash subscriptions;
    std::int32_t resultCode;
    std::uint32_t reserved;
};
QX_FIELD(qx_zam_connector_ZamDataProvider_GetSubscriptions_rsp, subscriptions, 24);
QX_FIELD(qx_zam_connector_ZamDataProvider_GetSubscriptions_rsp, resultCode, 80);
QX_FIELD(qx_zam_connector_ZamDataProvider_GetSubscriptions_rsp, reserved, 84);

using qx_zam_connector_ZamDataProvider_GetZamServerData_req = qx::EmptyRequest;
// No reserved bytes at the end: the record takes 12, and the code fills the fourth word.
struct qx_zam_connector_ZamDataProvider_GetZamServerData_rsp {
    vd_message_header header;
    qx_zam_connector_ZamTypes_ZamServerData serverData;
    std::int32_t resultCode;
};
QX_FIELD(qx_zam_connector_ZamDataProvider_GetZamServerData_rsp, serverData, 24);
QX_FIELD(qx_zam_connector_ZamDataProvider_GetZamServerData_rsp, resultCode, 36);

using qx_zam_connector_ZamDataProvider_GetZamReserveCert_req = qx::EmptyRequest;
// A stretch and no record: nothing is told of the certificate but its bytes.
struct qx_zam_connector_ZamDataProvider_GetZamReserveCert_rsp {
    vd_message_header header;
    vd_bytes certificate;
    std::int32_t resultCode;
    std::uint32_t reserved;
};
QX_FIELD(qx_zam_connector_ZamDataProvider_GetZamReserveCert_rsp, certificate, 24);
QX_FIELD(qx_zam_connector_ZamDataProvider_GetZamReserveCert_rsp, resultCode, 32);
QX_FIELD(qx_zam_connector_ZamDataProvider_GetZamReserveCert_rsp, reserved, 36);

using qx_zam_connector_ZamDataProvider_GetPolicyHash_req = qx::EmptyRequest;
using qx_zam_connector_ZamDataProvider_GetPolicyHash_rsp = qx::HashResponse;

using qx_zam_connector_ZamDataProvider_GetSettingsHash_req = qx::EmptyRequest;
using qx_zam_connector_ZamDataProvider_GetSettingsHash_rsp = qx::HashResponse;

using qx_zam_connector_ZamDataProvider_GetSubscriptionHash_req = qx::EmptyRequest;
using qx_zam_connector_ZamDataProvider_GetSubscriptionHash_rsp = qx::HashResponse;

using qx_zam_connector_ZamDataProvider_GetZamUpdatesStatusHash_req = qx::EmptyRequest;
using qx_zam_connector_ZamDataProvider_GetZamUpdatesStatusHash_rsp = qx::HashResponse;

using qx_zam_connector_ZamDataProvider_GetSyncedSettingsHash_req = qx::EmptyRequest;
using qx_zam_connector_ZamDataProvider_GetSyncedSettingsHash_rsp = qx::HashResponse;

// The hash comes with the channel: the three lists are pulled one after the other, and belong to
// the state that the service had when it opened the channel.
using qx_zam_connector_ZamDataProvider_OpenZamUpdatesStatusChannel_req = qx::EmptyRequest;
struct qx_zam_connector_ZamDataProvider_OpenZamUpdatesStatusChannel_rsp {
    vd_message_header header;
    std::int64_t channel;
    std::uint64_t hash;
    std::int8_t sessionStatus;
    std::uint8_t reserved[7];
};
QX_FIELD(qx_zam_connector_ZamDataProvider_OpenZamUpdatesStatusChannel_rsp, channel, 24);
QX_FIELD(qx_zam_connector_ZamDataProvider_OpenZamUpdatesStatusChannel_rsp, hash, 32);
QX_FIELD(qx_zam_connector_ZamDataProvider_OpenZamUpdatesStatusChannel_rsp, sessionStatus, 40);
QX_FIELD(qx_zam_connector_ZamDataProvider_OpenZamUpdatesStatusChannel_rsp, reserved, 41);

// One operation for the three kinds of updates, so that one channel, and one state, serves them
// all. Other than with "GetData", the answer whose status is 1 brings no identifiers: clients do
// not look.
struct qx_zam_connector_ZamDataProvider_GetUpdatesStatus_req {
    vd_message_header header;
    std::int64_t channel;
    std::uint32_t kind;
    std::uint32_t reserved;
};
QX_FIELD(qx_zam_connector_ZamDataProvider_GetUpdatesStatus_req, channel, 24);
QX_FIELD(qx_zam_connector_ZamDataProvider_GetUpdatesStatus_req, kind, 32);
QX_FIELD(qx_zam_connector_ZamDataProvider_GetUpdatesStatus_req, reserved, 36);
struct qx_zam_connector_ZamDataProvider_GetUpdatesStatus_rsp {
    vd_message_header header;
    qx_zam_connector_ZamTypes_ZamUpdateIdentifierContainer updates;
    std::int8_t sessionStatus;
    std::uint8_t reserved[7];
};
QX_FIELD(qx_zam_connector_ZamDataProvider_GetUpdatesStatus_rsp, updates, 24);
QX_FIELD(qx_zam_connector_ZamDataProvider_GetUpdatesStatus_rsp, sessionStatus, 32);
QX_FIELD(qx_zam_connector_ZamDataProvider_GetUpdatesStatus_rsp, reserved, 33);

using qx_zam_connector_ZamDataProvider_CloseZamUpdatesStatusChannel_req = qx::ChannelRequest;
using qx_zam_connector_ZamDataProvider_CloseZamUpdatesStatusChannel_rsp = qx::SessionResponse;

QX_DECLARE_INTERFACE(ZamDataProvider, QX_ZAM_DATA_PROVIDER_OPERATIONS)
