#pragma once

#include <cstddef>
#include <cstdint>

#include "qx/interface.h"

/// Records shared by the interfaces. All of them are little-endian, of fixed size, without hidden
/// padding, and valid when zero-filled. Enumerations and flags stand as integers.

/// Parameters of a connection start.
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

/// Bits of `qx_zam_connector_ZamTypes_ZamConnectorSettings::flags`; unknown bits are ignored.
inline constexpr std::uint32_t kQxSettingsCompressTraffic = 1U << 0U;
inline constexpr std::uint32_t kQxSettingsAllowMeteredNetwork = 1U << 1U;
inline constexpr std::uint32_t kQxSettingsSendDiagnostics = 1U << 2U;

/// Settings of the connector.
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

/// A piece of raw parameters: one stretch of the arena.
struct qx_zam_connector_ZamTypes_ZamParams {
    vd_bytes records;
};
static_assert(sizeof(qx_zam_connector_ZamTypes_ZamParams) == 8);
QX_FIELD(qx_zam_connector_ZamTypes_ZamParams, records, 0);

/// Subscriptions with the hash of their content. The three sequences have one element for each
/// subscription: the event types (`vd_bytes` each), the least severities and the longest delays in
/// seconds (32-bit each).
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

/// Data about the management server.
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

/// A sequence of 16-byte update identifiers.
struct qx_zam_connector_ZamTypes_ZamUpdateIdentifierContainer {
    vd_bytes identifiers;
};
static_assert(sizeof(qx_zam_connector_ZamTypes_ZamUpdateIdentifierContainer) == 8);
QX_FIELD(qx_zam_connector_ZamTypes_ZamUpdateIdentifierContainer, identifiers, 0);

/// What the product tells about itself. The last three stretches are sequences of `vd_bytes`; the
/// first two of them have one element for each component.
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

/// Bits of `qx_zam_connector_ZamTypes_DynamicAppInfo::flags`; unknown bits are ignored.
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

/// A 64-bit number in two halves, for records that are aligned to 4 bytes.
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

/// A file's description.
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

/// Which stretch of a file to fetch.
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

/// A stretch of a file. Aligned to 4 bytes, so that the result code behind it still fits.
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

/// Which client certificates to fetch.
struct qx_zam_connector_ZamTypes_ClientCertParams {
    vd_bytes subject;
    vd_bytes issuer;
    std::int64_t validAt;
};
static_assert(sizeof(qx_zam_connector_ZamTypes_ClientCertParams) == 24);
QX_FIELD(qx_zam_connector_ZamTypes_ClientCertParams, subject, 0);
QX_FIELD(qx_zam_connector_ZamTypes_ClientCertParams, issuer, 8);
QX_FIELD(qx_zam_connector_ZamTypes_ClientCertParams, validAt, 16);

/// Bits of `qx_zam_connector_ZamTypes_ClientCertInfo::flags`; unknown bits are ignored.
inline constexpr std::uint32_t kQxClientCertHasPrivateKey = 1U << 0U;

/// A client certificate; stands in the arena. Without its flag the private key is absent.
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
