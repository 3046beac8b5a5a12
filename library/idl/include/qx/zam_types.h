#pragma once

#include <cstddef>
#include <cstdint>

#include "qx/interface.h"

/// Records shared by the interfaces. All of them are little-endian, of fixed size, without hidden
/// padding, and valid when zero-filled. Enumerations and flags stand as integers.
///
/// Little-endian and of fixed size, because they are copied as they stand: neither side converts
/// byte by byte. Valid when zero-filled, because every message begins so, and a member that a peer
/// does not know of yet stays 0. Integers for enumerations, because a value that a peer has made up
/// must be something that can be looked at and refused.

/// Parameters of a connection start. The port takes 32 bits, as all numbers here: a value above
/// 65535 is refused by the conversion rather than cut.
struct qx_zam_connector_ZamTypes_ZamConnectionParameters {
    vd_bytes serverAddress;
    vd_bytes productName;
    vd_bytes deviceName;
    vd_bytes proxyUrl;
    std::uint32_t serverPort;
    std::uint32_t connectTimeoutMs;
    std::uint32_t requestTimeoutMs;
    std::uint32_t keepAlivePeriodMs;
};
static_assert(sizeof(qx_zam_connector_ZamTypes_ZamConnectionParameters) == 48);
QX_FIELD(qx_zam_connector_ZamTypes_ZamConnectionParameters, serverAddress, 0);
QX_FIELD(qx_zam_connector_ZamTypes_ZamConnectionParameters, productName, 8);
QX_FIELD(qx_zam_connector_ZamTypes_ZamConnectionParameters, deviceName, 16);
QX_FIELD(qx_zam_connector_ZamTypes_ZamConnectionParameters, proxyUrl, 24);
QX_FIELD(qx_zam_connector_ZamTypes_ZamConnectionParameters, serverPort, 32);
QX_FIELD(qx_zam_connector_ZamTypes_ZamConnectionParameters, connectTimeoutMs, 36);
QX_FIELD(qx_zam_connector_ZamTypes_ZamConnectionParameters, requestTimeoutMs, 40);
QX_FIELD(qx_zam_connector_ZamTypes_ZamConnectionParameters, keepAlivePeriodMs, 44);

/// Bits of `qx_zam_connector_ZamTypes_ZamConnectorSettings::flags`; unknown bits are ignored, so
/// that a newer service can set more of them.
inline constexpr std::uint32_t kQxSettingsCompressTraffic = 1U << 0U;
inline constexpr std::uint32_t kQxSettingsAllowMeteredNetwork = 1U << 1U;
inline constexpr std::uint32_t kQxSettingsSendDiagnostics = 1U << 2U;

/// Settings of the connector. Four periods of 4 bytes, then the 8-byte members, then two of 4: in
/// this order nothing needs padding. Periods are whole seconds, the unit that the server has.
struct qx_zam_connector_ZamTypes_ZamConnectorSettings {
    std::uint32_t syncPeriodS;
    std::uint32_t heartbeatPeriodS;
    std::uint32_t reconnectDelayMinS;
    std::uint32_t reconnectDelayMaxS;
    std::uint64_t uploadLimitBytesPerSecond;
    std::uint64_t downloadLimitBytesPerSecond;
    std::uint64_t maxFileSizeBytes;
    std::uint32_t eventQueueLimit;
    std::uint32_t flags;
};
static_assert(sizeof(qx_zam_connector_ZamTypes_ZamConnectorSettings) == 48);
QX_FIELD(qx_zam_connector_ZamTypes_ZamConnectorSettings, syncPeriodS, 0);
QX_FIELD(qx_zam_connector_ZamTypes_ZamConnectorSettings, heartbeatPeriodS, 4);
QX_FIELD(qx_zam_connector_ZamTypes_ZamConnectorSettings, reconnectDelayMinS, 8);
QX_FIELD(qx_zam_connector_ZamTypes_ZamConnectorSettings, reconnectDelayMaxS, 12);
QX_FIELD(qx_zam_connector_ZamTypes_ZamConnectorSettings, uploadLimitBytesPerSecond, 16);
QX_FIELD(qx_zam_connector_ZamTypes_ZamConnectorSettings, downloadLimitBytesPerSecond, 24);
QX_FIELD(qx_zam_connector_ZamTypes_ZamConnectorSettings, maxFileSizeBytes, 32);
QX_FIELD(qx_zam_connector_ZamTypes_ZamConnectorSettings, eventQueueLimit, 40);
QX_FIELD(qx_zam_connector_ZamTypes_ZamConnectorSettings, flags, 44);

/// A piece of raw parameters: one stretch of the arena. Not a sequence of fixed elements, which
/// would take 16 bytes for the places of each path and value: a piece must hold ten parameters
/// whose bytes leave one byte of its arena.
struct qx_zam_connector_ZamTypes_ZamParams {
    vd_bytes records;
};
static_assert(sizeof(qx_zam_connector_ZamTypes_ZamParams) == 8);
QX_FIELD(qx_zam_connector_ZamTypes_ZamParams, records, 0);

/// Subscriptions with the hash of their content. The three sequences have one element for each
/// subscription: the event types (`vd_bytes` each), the least severities and the longest delays in
/// seconds (32-bit each). The last 24 bytes fill the 56 that the contract has for the record.
struct qx_zam_connector_ZamTypes_ZamSubscriptionsWithHash {
    std::uint64_t hash;
    vd_bytes eventTypes;
    vd_bytes minSeverities;
    vd_bytes maxDelaysS;
    std::uint64_t reserved[3];
};
static_assert(sizeof(qx_zam_connector_ZamTypes_ZamSubscriptionsWithHash) == 56);
QX_FIELD(qx_zam_connector_ZamTypes_ZamSubscriptionsWithHash, hash, 0);
QX_FIELD(qx_zam_connector_ZamTypes_ZamSubscriptionsWithHash, eventTypes, 8);
QX_FIELD(qx_zam_connector_ZamTypes_ZamSubscriptionsWithHash, minSeverities, 16);
QX_FIELD(qx_zam_connector_ZamTypes_ZamSubscriptionsWithHash, maxDelaysS, 24);
QX_FIELD(qx_zam_connector_ZamTypes_ZamSubscriptionsWithHash, reserved, 32);

/// Bits of `qx_zam_connector_ZamTypes_ZamServerData::flags`; unknown bits are ignored.
inline constexpr std::uint8_t kQxServerOffersFiles = 1U << 0U;
inline constexpr std::uint8_t kQxServerWantsDiagnostics = 1U << 1U;
inline constexpr std::uint8_t kQxServerRequiresClientCert = 1U << 2U;

/// Data about the management server. 12 bytes, aligned to 4: the result code stands right behind
/// it, at 36 of the answer's 40 bytes, so there must be no 8-byte member here.
struct qx_zam_connector_ZamTypes_ZamServerData {
    std::uint16_t versionMajor;
    std::uint16_t versionMinor;
    std::int32_t clockOffsetS;
    std::uint8_t deviceStatus;
    std::uint8_t flags;
    std::uint16_t reserved;
};
static_assert(sizeof(qx_zam_connector_ZamTypes_ZamServerData) == 12);
QX_FIELD(qx_zam_connector_ZamTypes_ZamServerData, versionMajor, 0);
QX_FIELD(qx_zam_connector_ZamTypes_ZamServerData, versionMinor, 2);
QX_FIELD(qx_zam_connector_ZamTypes_ZamServerData, clockOffsetS, 4);
QX_FIELD(qx_zam_connector_ZamTypes_ZamServerData, deviceStatus, 8);
QX_FIELD(qx_zam_connector_ZamTypes_ZamServerData, flags, 9);
QX_FIELD(qx_zam_connector_ZamTypes_ZamServerData, reserved, 10);

/// A sequence of 16-byte update identifiers. Bytes and not text: ten of them fill an answer's
/// arena.
struct qx_zam_connector_ZamTypes_ZamUpdateIdentifierContainer {
    vd_bytes identifiers;
};
static_assert(sizeof(qx_zam_connector_ZamTypes_ZamUpdateIdentifierContainer) == 8);
QX_FIELD(qx_zam_connector_ZamTypes_ZamUpdateIdentifierContainer, identifiers, 0);

/// What the product tells about itself. The last three stretches are sequences of `vd_bytes`; the
/// first two of them have one element for each component: names apart from versions, since every
/// sequence of texts is one of `vd_bytes`. The tables of these stand on multiples of 4 in the
/// arena, which can take up to 9 bytes beside the texts. With its header the record fills the 224
/// bytes of the request; the last 8 are reserved for that.
struct qx_zam_connector_ZamTypes_AppInfo {
    vd_bytes productId;
    vd_bytes productName;
    vd_bytes productVersion;
    vd_bytes buildNumber;
    vd_bytes vendorName;
    vd_bytes installationId;
    vd_bytes installPath;
    vd_bytes licenseId;
    vd_bytes updateChannel;
    vd_bytes deviceModel;
    vd_bytes deviceSerial;
    vd_bytes osName;
    vd_bytes osVersion;
    vd_bytes architecture;
    vd_bytes hostName;
    vd_bytes supportUrl;
    vd_bytes componentNames;
    vd_bytes componentVersions;
    vd_bytes capabilities;
    std::int64_t installTime;
    std::int64_t lastUpdateTime;
    std::int64_t licenseExpiry;
    std::uint64_t maxFileSizeBytes;
    std::uint32_t localeId;
    std::uint32_t protocolVersion;
    std::uint64_t reserved;
};
static_assert(sizeof(qx_zam_connector_ZamTypes_AppInfo) == 200);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, productId, 0);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, productName, 8);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, productVersion, 16);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, buildNumber, 24);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, vendorName, 32);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, installationId, 40);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, installPath, 48);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, licenseId, 56);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, updateChannel, 64);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, deviceModel, 72);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, deviceSerial, 80);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, osName, 88);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, osVersion, 96);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, architecture, 104);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, hostName, 112);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, supportUrl, 120);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, componentNames, 128);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, componentVersions, 136);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, capabilities, 144);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, installTime, 152);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, lastUpdateTime, 160);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, licenseExpiry, 168);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, maxFileSizeBytes, 176);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, localeId, 184);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, protocolVersion, 188);
QX_FIELD(qx_zam_connector_ZamTypes_AppInfo, reserved, 192);

/// Bits of `qx_zam_connector_ZamTypes_DynamicAppInfo::flags`; unknown bits are ignored. One byte
/// has room for the three and five more: the request has 8 bytes besides its header.
inline constexpr std::uint8_t kQxAppRestartRequired = 1U << 0U;
inline constexpr std::uint8_t kQxAppRebootRequired = 1U << 1U;
inline constexpr std::uint8_t kQxAppUpdateInProgress = 1U << 2U;

/// What changes of it while the product runs.
struct qx_zam_connector_ZamTypes_DynamicAppInfo {
    std::uint32_t uptimeS;
    std::uint8_t health;
    std::uint8_t flags;
    std::uint16_t reserved;
};
static_assert(sizeof(qx_zam_connector_ZamTypes_DynamicAppInfo) == 8);
QX_FIELD(qx_zam_connector_ZamTypes_DynamicAppInfo, uptimeS, 0);
QX_FIELD(qx_zam_connector_ZamTypes_DynamicAppInfo, health, 4);
QX_FIELD(qx_zam_connector_ZamTypes_DynamicAppInfo, flags, 5);
QX_FIELD(qx_zam_connector_ZamTypes_DynamicAppInfo, reserved, 6);

/// A 64-bit number in two halves, for records that are aligned to 4 bytes: one 8-byte member would
/// align the whole record to 8 and put padding into it. Low half first, so that the bytes are those
/// of a little-endian number all the same.
struct qx_zam_connector_ZamTypes_Halves {
    std::uint32_t low;
    std::uint32_t high;

    constexpr std::uint64_t Get() const noexcept { return std::uint64_t{high} << 32U | low; }
    constexpr void Set(std::uint64_t number) noexcept {
        low = static_cast<std::uint32_t>(number);
        high = static_cast<std::uint32_t>(number >> 32U);
    }
};
static_assert(sizeof(qx_zam_connector_ZamTypes_Halves) == 8);
QX_FIELD(qx_zam_connector_ZamTypes_Halves, low, 0);
QX_FIELD(qx_zam_connector_ZamTypes_Halves, high, 4);

/// Which file to describe.
struct qx_zam_connector_ZamTypes_FileInfoParams {
    vd_bytes path;
};
static_assert(sizeof(qx_zam_connector_ZamTypes_FileInfoParams) == 8);
QX_FIELD(qx_zam_connector_ZamTypes_FileInfoParams, path, 0);

/// A file's description. The hash is text, which people and other programs can compare as it
/// stands.
struct qx_zam_connector_ZamTypes_FileInfo {
    vd_bytes sha256;
    std::uint64_t sizeBytes;
    std::int64_t modificationTime;
    std::uint64_t chunkSizeBytes;
};
static_assert(sizeof(qx_zam_connector_ZamTypes_FileInfo) == 32);
QX_FIELD(qx_zam_connector_ZamTypes_FileInfo, sha256, 0);
QX_FIELD(qx_zam_connector_ZamTypes_FileInfo, sizeBytes, 8);
QX_FIELD(qx_zam_connector_ZamTypes_FileInfo, modificationTime, 16);
QX_FIELD(qx_zam_connector_ZamTypes_FileInfo, chunkSizeBytes, 24);

/// Which stretch of a file to fetch. The offset has 64 bits for files beyond 4 GiB; the size of one
/// chunk never needs them.
struct qx_zam_connector_ZamTypes_FileChunkParams {
    vd_bytes path;
    std::uint64_t offset;
    std::uint32_t maxSizeBytes;
    std::uint32_t reserved;
};
static_assert(sizeof(qx_zam_connector_ZamTypes_FileChunkParams) == 24);
QX_FIELD(qx_zam_connector_ZamTypes_FileChunkParams, path, 0);
QX_FIELD(qx_zam_connector_ZamTypes_FileChunkParams, offset, 8);
QX_FIELD(qx_zam_connector_ZamTypes_FileChunkParams, maxSizeBytes, 16);
QX_FIELD(qx_zam_connector_ZamTypes_FileChunkParams, reserved, 20);

/// A stretch of a file. Aligned to 4 bytes, so that the result code behind it still fits: 24 bytes
/// of header, these 36 and the code are the 64 of the answer. The version and the size of the whole
/// file are in every chunk, since it may be replaced between two of them.
struct qx_zam_connector_ZamTypes_FileChunk {
    std::uint32_t crc32;
    vd_bytes version;
    qx_zam_connector_ZamTypes_Halves offset;
    qx_zam_connector_ZamTypes_Halves totalSizeBytes;
    vd_bytes data;
};
static_assert(sizeof(qx_zam_connector_ZamTypes_FileChunk) == 36);
static_assert(alignof(qx_zam_connector_ZamTypes_FileChunk) == 4);
QX_FIELD(qx_zam_connector_ZamTypes_FileChunk, crc32, 0);
QX_FIELD(qx_zam_connector_ZamTypes_FileChunk, version, 4);
QX_FIELD(qx_zam_connector_ZamTypes_FileChunk, offset, 12);
QX_FIELD(qx_zam_connector_ZamTypes_FileChunk, totalSizeBytes, 20);
QX_FIELD(qx_zam_connector_ZamTypes_FileChunk, data, 28);

/// Which client certificates to fetch. Zero-filled it asks for all: empty texts match any, and so
/// does a time of 0.
struct qx_zam_connector_ZamTypes_ClientCertParams {
    vd_bytes subject;
    vd_bytes issuer;
    std::int64_t validAt;
};
static_assert(sizeof(qx_zam_connector_ZamTypes_ClientCertParams) == 24);
QX_FIELD(qx_zam_connector_ZamTypes_ClientCertParams, subject, 0);
QX_FIELD(qx_zam_connector_ZamTypes_ClientCertParams, issuer, 8);
QX_FIELD(qx_zam_connector_ZamTypes_ClientCertParams, validAt, 16);

/// Bits of `qx_zam_connector_ZamTypes_ClientCertInfo::flags`; unknown bits are ignored. Whether
/// there is a key needs a bit: an empty text is what a key that is there but empty would be.
inline constexpr std::uint32_t kQxClientCertHasPrivateKey = 1U << 0U;

/// A client certificate; stands in the arena. Without its flag the private key is absent. Elements
/// of sequences stand on multiples of 4, so no member may need more than that.
struct qx_zam_connector_ZamTypes_ClientCertInfo {
    vd_bytes name;
    vd_bytes subject;
    vd_bytes issuer;
    vd_bytes serialNumber;
    vd_bytes certificate;
    vd_bytes privateKey;
    std::uint32_t flags;
    std::uint32_t reserved;
};
static_assert(sizeof(qx_zam_connector_ZamTypes_ClientCertInfo) == 56);
static_assert(alignof(qx_zam_connector_ZamTypes_ClientCertInfo) == 4);
QX_FIELD(qx_zam_connector_ZamTypes_ClientCertInfo, name, 0);
QX_FIELD(qx_zam_connector_ZamTypes_ClientCertInfo, subject, 8);
QX_FIELD(qx_zam_connector_ZamTypes_ClientCertInfo, issuer, 16);
QX_FIELD(qx_zam_connector_ZamTypes_ClientCertInfo, serialNumber, 24);
QX_FIELD(qx_zam_connector_ZamTypes_ClientCertInfo, certificate, 32);
QX_FIELD(qx_zam_connector_ZamTypes_ClientCertInfo, privateKey, 40);
QX_FIELD(qx_zam_connector_ZamTypes_ClientCertInfo, flags, 48);
QX_FIELD(qx_zam_connector_ZamTypes_ClientCertInfo, reserved, 52);

/// A sequence of client certificates, `qx_zam_connector_ZamTypes_ClientCertInfo` each.
struct qx_zam_connector_ZamTypes_ClientCertsInfo {
    vd_bytes certificates;
};
static_assert(sizeof(qx_zam_connector_ZamTypes_ClientCertsInfo) == 8);
QX_FIELD(qx_zam_connector_ZamTypes_ClientCertsInfo, certificates, 0);
