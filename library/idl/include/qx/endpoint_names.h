#pragma once

namespace qx {

/// Names of the services, as the service locator knows them. Two, though one process may serve
/// both: downloads are long, and a device may have them served apart from all else.
inline constexpr char kConnectorService[] = "zam_connector_id";
inline constexpr char kFileDownloaderService[] = "zam_file_downloader_id";

/// Names of the endpoints. All but the file downloader's belong to the connector service. A client
/// knows these names only; the numbers that its messages carry are the service's to give.
inline constexpr char kConnControllerEndpoint[] =
    "qx.zam_connector.ZamConnectorComponent.connController";
inline constexpr char kConnSettingsHolderEndpoint[] =
    "qx.zam_connector.ZamConnectorComponent.connSettingsHolder";
inline constexpr char kConnStateNotifierEndpoint[] =
    "qx.zam_connector.ZamConnectorComponent.connStateNotifier";
inline constexpr char kConnCommandSenderEndpoint[] =
    "qx.zam_connector.ZamConnectorComponent.connCommandSender";
inline constexpr char kZamDataProviderEndpoint[] =
    "qx.zam_connector.ZamConnectorComponent.zamDataProvider";
inline constexpr char kZamDataNotifierEndpoint[] =
    "qx.zam_connector.ZamConnectorComponent.zamDataNotifier";
inline constexpr char kProductDataHolderEndpoint[] =
    "qx.zam_connector.ZamConnectorComponent.productDataHolder";
inline constexpr char kFileDownloaderEndpoint[] =
    "qx.zam_connector.ZamFileDownloaderComponent.fileDownloader";
inline constexpr char kClientCertsDownloaderEndpoint[] =
    "qx.zam_connector.ZamConnectorComponent.clientCertsDownloader";

}  // namespace qx
