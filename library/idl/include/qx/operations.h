#pragma once

/// The operations of the nine interfaces of the connector service: the one place that sizes,
/// orders and arenas come from. Each row is
///
///     OP(interface, number, name, request bytes, response bytes, request arena, response arena)
///
/// Message sizes are those of the fixed part, header included. An arena of 0 means that the
/// operation has none; the other arena sizes are what the client provides and therefore the most
/// that the service takes or answers.

// clang-format off
#define QX_CONN_CONTROLLER_OPERATIONS(OP)                                       \
    OP(ConnController, 0, Start,    72, 32, 1360, 0)                            \
    OP(ConnController, 1, Stop,     24, 32, 0, 0)                               \
    OP(ConnController, 2, GetState, 24, 32, 0, 0)

#define QX_CONN_SETTINGS_HOLDER_OPERATIONS(OP)                                  \
    OP(ConnSettingsHolder, 0, Set, 72, 32, 0, 0)                                \
    OP(ConnSettingsHolder, 1, Get, 24, 80, 0, 0)

#define QX_CONN_COMMAND_SENDER_OPERATIONS(OP)                                   \
    OP(ConnCommandSender, 0, PostZamEvent, 32, 32, 128, 0)                      \
    OP(ConnCommandSender, 1, ScheduleSync, 24, 32, 0, 0)

#define QX_CONN_STATE_NOTIFIER_OPERATIONS(OP)                                   \
    OP(ConnStateNotifier, 0, Register,   24, 40, 0, 0)                          \
    OP(ConnStateNotifier, 1, GetState,   32, 32, 0, 0)                          \
    OP(ConnStateNotifier, 2, Unregister, 32, 32, 0, 0)

#define QX_ZAM_DATA_NOTIFIER_OPERATIONS(OP)                                     \
    OP(ZamDataNotifier, 0, Register,           24, 40, 0, 0)                    \
    OP(ZamDataNotifier, 1, GetChangedDataType, 32, 32, 0, 0)                    \
    OP(ZamDataNotifier, 2, Unregister,         32, 32, 0, 0)

#define QX_ZAM_DATA_PROVIDER_OPERATIONS(OP)                                     \
    OP(ZamDataProvider, 0,  OpenPolicyChannel,            24, 40, 0, 0)         \
    OP(ZamDataProvider, 1,  OpenSettingsChannel,          24, 40, 0, 0)         \
    OP(ZamDataProvider, 2,  GetData,                      32, 40, 0, 676000)    \
    OP(ZamDataProvider, 3,  GetZamHash,                   32, 40, 0, 0)         \
    OP(ZamDataProvider, 4,  GetZamResult,                 32, 32, 0, 0)         \
    OP(ZamDataProvider, 5,  CloseChannel,                 32, 32, 0, 0)         \
    OP(ZamDataProvider, 6,  GetSubscriptions,             24, 88, 0, 69632)     \
    OP(ZamDataProvider, 7,  GetZamServerData,             24, 40, 0, 0)         \
    OP(ZamDataProvider, 8,  GetZamReserveCert,            24, 40, 0, 16384)     \
    OP(ZamDataProvider, 9,  GetPolicyHash,                24, 40, 0, 0)         \
    OP(ZamDataProvider, 10, GetSettingsHash,              24, 40, 0, 0)         \
    OP(ZamDataProvider, 11, GetSubscriptionHash,          24, 40, 0, 0)         \
    OP(ZamDataProvider, 12, GetZamUpdatesStatusHash,      24, 40, 0, 0)         \
    OP(ZamDataProvider, 13, GetSyncedSettingsHash,        24, 40, 0, 0)         \
    OP(ZamDataProvider, 14, OpenZamUpdatesStatusChannel,  24, 48, 0, 0)         \
    OP(ZamDataProvider, 15, GetUpdatesStatus,             40, 40, 0, 160)       \
    OP(ZamDataProvider, 16, CloseZamUpdatesStatusChannel, 32, 32, 0, 0)

#define QX_PRODUCT_DATA_HOLDER_OPERATIONS(OP)                                   \
    OP(ProductDataHolder, 0, SetAppInfo,             224, 32, 21216, 0)         \
    OP(ProductDataHolder, 1, SetAppInfoDynamic,      32, 32, 0, 0)              \
    OP(ProductDataHolder, 2, OpenSetSettingsChannel, 24, 40, 0, 0)              \
    OP(ProductDataHolder, 3, OpenAppEulasChannel,    24, 40, 0, 0)              \
    OP(ProductDataHolder, 4, OpenAppUpdatesChannel,  24, 40, 0, 0)              \
    OP(ProductDataHolder, 5, SendData,               40, 32, 676000, 0)         \
    OP(ProductDataHolder, 6, CloseChannel,           32, 40, 0, 0)

#define QX_ZAM_FILE_DOWNLOADER_OPERATIONS(OP)                                   \
    OP(ZamFileDownloader, 0, GetFileInfo,  32, 64, 1024, 1024)                  \
    OP(ZamFileDownloader, 1, GetFileChunk, 48, 64, 1024, 66560)

#define QX_ZAM_CLIENT_CERTS_DOWNLOADER_OPERATIONS(OP)                           \
    OP(ZamClientCertsDownloader, 0, GetClientCertificates, 48, 40, 2048, 338280)

/// Every interface with its rows: ROW(interface, operations).
#define QX_INTERFACES(ROW)                                                      \
    ROW(ConnController, QX_CONN_CONTROLLER_OPERATIONS)                          \
    ROW(ConnSettingsHolder, QX_CONN_SETTINGS_HOLDER_OPERATIONS)                 \
    ROW(ConnCommandSender, QX_CONN_COMMAND_SENDER_OPERATIONS)                   \
    ROW(ConnStateNotifier, QX_CONN_STATE_NOTIFIER_OPERATIONS)                   \
    ROW(ZamDataNotifier, QX_ZAM_DATA_NOTIFIER_OPERATIONS)                       \
    ROW(ZamDataProvider, QX_ZAM_DATA_PROVIDER_OPERATIONS)                       \
    ROW(ProductDataHolder, QX_PRODUCT_DATA_HOLDER_OPERATIONS)                   \
    ROW(ZamFileDownloader, QX_ZAM_FILE_DOWNLOADER_OPERATIONS)                   \
    ROW(ZamClientCertsDownloader, QX_ZAM_CLIENT_CERTS_DOWNLOADER_OPERATIONS)
// clang-format on
