#include "service.h"

#include <cstdlib>
#include <stdexcept>

namespace zam_bench {

Service::Service() : process_(ZAM_CONNECTORD) {
    process_.Start();
    ::setenv("ZAM_RUNTIME_DIR", process_.RuntimeDirectory().c_str(), 1);
}

void GetState(zam_connector::test::RealConnection& connection) {
    zam_connector::ZamConnectorState state{};
    if (connection.Controller().GetState(state) != 0) {
        throw std::runtime_error("GetState failed");
    }
}

}  // namespace zam_bench
