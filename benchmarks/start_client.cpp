// The least that a client does: it makes a connector, asks for the state, and ends.

#include <memory>

#include "zam_connector/zam_connector.h"

int main() {
    std::shared_ptr<zam_connector::IZamConnector> connector;
    if (zam_connector::CreateZamConnector(connector, {"start"}) != 0 || connector == nullptr) {
        return 1;
    }
    std::shared_ptr<zam_connector::IZamConnController> controller;
    auto state = zam_connector::ZamConnectorState::Stopped;
    return connector->GetZamController(controller) == 0 && controller->GetState(state) == 0 ? 0 : 1;
}
