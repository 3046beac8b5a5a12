#include <gtest/gtest.h>
#include <stdlib.h>

#include <memory>

#include "zam_connector/zam_connector.h"
#include "zam_connector_testing/recording_logger.h"

using zam_connector::testing::RecordingLogger;

TEST(Application, FindsInTheLogWhyItHasNoConnector) {
    ::setenv("ZAM_RUNTIME_DIR", "/nowhere", 1);
    const RecordingLogger logger(zor::logger::kLevelError);

    std::shared_ptr<zam_connector::IZamConnector> connector;
    EXPECT_NE(zam_connector::CreateZamConnector(connector, {}), 0);

    bool isExplained = false;
    for (const auto& record : logger.Records()) {
        isExplained |= record.text.find("zam_connector_id") != std::string::npos;
    }
    EXPECT_TRUE(isExplained);
}
