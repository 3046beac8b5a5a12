#include "qx/endpoint_names.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(EndpointNames, AreThoseThatTheServiceIsKnownBy) {
    struct Row {
        std::string name;
        std::string expected;
    };
    const Row rows[] = {
        {qx::kConnectorService, "zam_connector_id"},
        {qx::kFileDownloaderService, "zam_file_downloader_id"},
        {qx::kConnControllerEndpoint, "qx.zam_connector.ZamConnectorComponent.connController"},
        {qx::kConnSettingsHolderEndpoint,
         "qx.zam_connector.ZamConnectorComponent.connSettingsHolder"},
        {qx::kConnStateNotifierEndpoint,
         "qx.zam_connector.ZamConnectorComponent.connStateNotifier"},
        {qx::kConnCommandSenderEndpoint,
         "qx.zam_connector.ZamConnectorComponent.connCommandSender"},
        {qx::kZamDataProviderEndpoint, "qx.zam_connector.ZamConnectorComponent.zamDataProvider"},
        {qx::kZamDataNotifierEndpoint, "qx.zam_connector.ZamConnectorComponent.zamDataNotifier"},
        {qx::kProductDataHolderEndpoint,
         "qx.zam_connector.ZamConnectorComponent.productDataHolder"},
        {qx::kFileDownloaderEndpoint, "qx.zam_connector.ZamFileDownloaderComponent.fileDownloader"},
        {qx::kClientCertsDownloaderEndpoint,
         "qx.zam_connector.ZamConnectorComponent.clientCertsDownloader"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(row.name, row.expected);
    }
}

}  // namespace
