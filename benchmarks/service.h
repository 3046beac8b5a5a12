#pragma once

#include <sys/types.h>

#include "support/real_connection.h"
#include "zam_connector_testing/service_process.h"

namespace zam_bench {

/// A real service in a process of its own; this process's clients are pointed at it.
class Service {
public:
    Service();

    pid_t Pid() const noexcept { return process_.Pid(); }

private:
    zam_connector::testing::ServiceProcess process_;
};

/// `GetState`; throws `std::runtime_error` when it fails.
void GetState(zam_connector::test::RealConnection& connection);

}  // namespace zam_bench
