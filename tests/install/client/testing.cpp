// A client's own tests: the testing kit takes the place of the platform.

#include <cstdio>
#include <memory>

#include "zam_connector/zam_connector.h"
#include "zam_connector_testing/recording_logger.h"
#include "zam_connector_testing/scripted_platform.h"

int main() {
    const zam_connector::testing::RecordingLogger logger;
    const zam_connector::testing::ScriptedPlatform platform;
    std::shared_ptr<zam_connector::IZamConnector> connector;
    const int result = zam_connector::CreateZamConnector(connector, {});
    if (result != zam_connector::kUnspecifiedError || connector || platform.Calls().empty() ||
        logger.Records().empty()) {
        std::fprintf(stderr, "result %d, %zu calls, %zu records\n", result, platform.Calls().size(),
                     logger.Records().size());
        return 1;
    }
    return 0;
}
