#pragma once

/// The operations of the nine interfaces of the connector service: the one place that sizes,
/// orders and arenas come from. Each row is
///
///     OP(interface, number, name, request bytes, response bytes, request arena, response arena)
///
/// Message sizes are those of the fixed part, header included. An arena of 0 means that the
/// operation has none; the other arena sizes are what the client provides and therefore the most
/// that the service takes or answers.
///
/// All of it is contract with services that are built apart from this library: a row is never
/// moved, renumbered or resized, only appended. Tables, sizes and the server's checks are all made
/// of these rows, so that the two sides cannot come to disagree within one build.

// clang-format off
// 1360 bytes are for the four texts of the parameters together: none has a share of its own.
#define QX_CONN_CONTROLLER_OPERATIONS(OP)                                       \
    OP(ConnController, 0, Start,    72, 32, 1360, 0)                            \
    OP(ConnController, 1, Stop,     24, 32, 0, 0)                               \
    OP(ConnController, 2, GetState, 24, 32, 0, 0)

#define QX_CONN_SETTINGS_HOLDER_OPERATIONS(OP)                                  \
    OP(ConnSettingsHolder, 0, Set, 72, 32, 0, 0)                                \
    OP(ConnSettingsHolder, 1, Get, 24, 80, 0, 0)

// 128 bytes bound an event's text, which no other text shares its arena with.
#define QX_CONN_COMMAND_SENDER_OPERATIONS(OP)                                   \
    OP(ConnCommandSender, 0, PostZamEvent, 32, 32, 128, 0)                      \
    OP(ConnCommandSender, 1, ScheduleSync, 24, 32, 0, 0)

// Notices are numbers: the state itself, or the kind of data that has changed, which are fetched
// with calls of their own. So notices need no arena, however large the data are.
#define QX_CONN_STATE_NOTIFIER_OPERATIONS(OP)                                   \
    OP(ConnStateNotifier, 0, Register,   24, 40, 0, 0)                          \
    OP(ConnStateNotifier, 1, GetState,   32, 32, 0, 0)                          \
    OP(ConnStateNotifier, 2, Unregister, 32, 32, 0, 0)

#define QX_ZAM_DATA_NOTIFIER_OPERATIONS(OP)                                     \
    OP(ZamDataNotifier, 0, Register,           24, 40, 0, 0)                    \
    OP(ZamDataNotifier, 1, GetChangedDataType, 32, 32, 0, 0)                    \
    OP(ZamDataNotifier, 2, Unregister,         32, 32, 0, 0)

// Trees and lists of updates have no bound, so they come through channels, piece by piece. 676000
// bytes take ten raw parameters of 675999 bytes of values and paths together and the piece's
// version byte; 160 bytes take ten identifiers of 16. What is small and bounded comes in one
// answer.
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

// 676000 as above: what was pulled as a piece can be pushed as one. The record of operation 0 is
// sent in one call, without a channel, so 21216 bytes bound all its texts and their tables
// together.
#define QX_PRODUCT_DATA_HOLDER_OPERATIONS(OP)                                   \
    OP(ProductDataHolder, 0, SetAppInfo,             224, 32, 21216, 0)         \
    OP(ProductDataHolder, 1, SetAppInfoDynamic,      32, 32, 0, 0)              \
    OP(ProductDataHolder, 2, OpenSetSettingsChannel, 24, 40, 0, 0)              \
    OP(ProductDataHolder, 3, OpenAppEulasChannel,    24, 40, 0, 0)              \
    OP(ProductDataHolder, 4, OpenAppUpdatesChannel,  24, 40, 0, 0)              \
    OP(ProductDataHolder, 5, SendData,               40, 32, 676000, 0)         \
    OP(ProductDataHolder, 6, CloseChannel,           32, 40, 0, 0)

// 1024 bytes bound a path. 66560 leave, beside the 65536 of a chunk's data, as many for the version
// in front of them.
#define QX_ZAM_FILE_DOWNLOADER_OPERATIONS(OP)                                   \
    OP(ZamFileDownloader, 0, GetFileInfo,  32, 64, 1024, 1024)                  \
    OP(ZamFileDownloader, 1, GetFileChunk, 48, 64, 1024, 66560)

// 2048 bytes bound subject and issuer of the wanted certificates together, 338280 all certificates
// of an answer with their chains and keys: it comes whole or not at all.
#define QX_ZAM_CLIENT_CERTS_DOWNLOADER_OPERATIONS(OP)                           \
    OP(ZamClientCertsDownloader, 0, GetClientCertificates, 48, 40, 2048, 338280)

/// Every interface with its rows: ROW(interface, operations). The service's catalogue of endpoints
/// is checked to be in this order; clients know an interface by its riid alone.
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
