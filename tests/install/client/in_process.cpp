// A client's own tests: the whole service in their process.

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "zam_connector/zam_connector.h"
#include "zam_connector_testing/in_process_service.h"

int main() {
    zam_connector::testing::InProcessService service;
    service.Start();
    ::setenv("ZAM_RUNTIME_DIR", service.RuntimeDirectory().c_str(), 1);
    std::shared_ptr<zam_connector::IZamConnector> connector;
    std::shared_ptr<zam_connector::IZamConnController> controller;
    auto state = zam_connector::ZamConnectorState::Refused;
    if (zam_connector::CreateZamConnector(connector, {}) != zam_connector::kNoError || !connector ||
        connector->GetZamController(controller) != zam_connector::kNoError ||
        controller->GetState(state) != zam_connector::kNoError ||
        state != zam_connector::ZamConnectorState::Stopped) {
        std::fprintf(stderr, "the service in this process gave no state\n");
        return 1;
    }
    return 0;
}
