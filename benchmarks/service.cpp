#include "service.h"

#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "process.h"
#include "qx/endpoint_names.h"

namespace zam_bench {
namespace {

constexpr auto kLongestLoad = std::chrono::seconds(60);
constexpr auto kLoadPoll = std::chrono::milliseconds(10);

/// The service takes calls before it has read its policy.
void AwaitPolicy() {
    zam_connector::test::RealConnection connection;
    const auto latest = std::chrono::steady_clock::now() + kLongestLoad;
    unsigned long hash = 0;
    while (connection.DataProvider().GetPolicyHash(hash) == 0 && hash == 0) {
        if (std::chrono::steady_clock::now() > latest) {
            throw std::runtime_error("the service does not serve the policy");
        }
        std::this_thread::sleep_for(kLoadPoll);
    }
}

}  // namespace

Service::Service() : process_(ZAM_CONNECTORD) {
    Start();
}

Service::Service(const std::vector<std::string>& arguments) : process_(ZAM_CONNECTORD) {
    Start(arguments);
}

Service::Service(const std::string& policy) : process_(ZAM_CONNECTORD) {
    process_.WriteData("policy.json", policy);
    Start();
    Child(&AwaitPolicy).Join();
}

std::string Service::SocketPath() const {
    return process_.RuntimeDirectory() + "/" + std::string(qx::kConnectorService) + ".sock";
}

void Service::Start(const std::vector<std::string>& arguments) {
    process_.Start(arguments);
    PointClients();
}

void Service::PointClients() const {
    ::setenv("ZAM_RUNTIME_DIR", process_.RuntimeDirectory().c_str(), 1);
}

void GetState(zam_connector::test::RealConnection& connection) {
    zam_connector::ZamConnectorState state{};
    if (connection.Controller().GetState(state) != 0) {
        throw std::runtime_error("GetState failed");
    }
}

}  // namespace zam_bench
