#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "support/real_connection.h"
#include "zam_connector_testing/service_process.h"

namespace zam_bench {

/// A real service in a process of its own; this process's clients are pointed at it. Making one
/// uses the library in another process alone, so that later children of this one read their
/// environment anew.
class Service {
public:
    Service();

    /// One with more arguments.
    explicit Service(const std::vector<std::string>& arguments);

    /// One that serves a policy, typed JSON, when this returns.
    explicit Service(const std::string& policy);

    pid_t Pid() const noexcept { return process_.Pid(); }

    /// Points clients at it again that this process, or a child of it, makes from now on.
    void PointClients() const;

    /// Path of the connector service's socket.
    std::string SocketPath() const;

    /// Path of a file in the folder that is served.
    std::string DataPath(const std::string& name) const {
        return process_.DataDirectory() + "/" + name;
    }

    /// Changes the policy that is served.
    void WritePolicy(const std::string& policy) const { process_.WriteData("policy.json", policy); }

private:
    void Start(const std::vector<std::string>& arguments = {});

    zam_connector::testing::ServiceProcess process_;
};

/// `GetState`; throws `std::runtime_error` when it fails.
void GetState(zam_connector::test::RealConnection& connection);

}  // namespace zam_bench
