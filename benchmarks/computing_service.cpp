#include "computing_service.h"

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <stdexcept>
#include <utility>
#include <vector>

#include "computing.h"
#include "zam_platform/runtime_directory.h"
#include "zam_platform/server/listening_socket.h"
#include "zam_platform/server/server.h"
#include "zam_platform/spin_setting.h"

namespace zam_bench {
namespace {

class ComputingEndpoint final : public zam_platform::EndpointHandler {
public:
    zam_platform::EndpointRule Rule() {
        return {.name = kComputingEndpoint,
                .riid = 1,
                .operations = {{.name = "Compute",
                                .requestBytes = sizeof(ComputeMessage),
                                .responseBytes = sizeof(ComputeMessage)}},
                .handler = this};
    }

    void OnCall(const zam_platform::Request& request, zam_platform::Responder responder) override {
        ComputeMessage answer{};
        answer.nanoseconds = request.As<ComputeMessage>().nanoseconds;
        Compute(std::chrono::nanoseconds(answer.nanoseconds));
        responder.Answer(answer);
    }
};

void Serve(const std::string& folder, int ready) {
    static_cast<void>(::signal(SIGPIPE, SIG_IGN));
    const zam_platform::RuntimeDirectory directory(folder);
    ComputingEndpoint endpoint;
    zam_platform::ServerLimits limits;
    limits.spinCap = zam_platform::SpinCap();
    zam_platform::Server server({endpoint.Rule()}, {.ownUser = ::geteuid(), .group = {}}, limits);
    zam_platform::ListeningSocket socket(directory, kComputingService, false);
    server.Accept(socket.Release());
    const unsigned char byte = 0;
    if (SendAll(ready, &byte, 1)) {
        server.Run();
    }
}

}  // namespace

ComputingService::ComputingService()
    : ready_(MakeSocketPair()), child_([this] {
          ready_.client.Reset();
          Serve(folder_.Path(), ready_.server.Get());
      }) {
    ready_.server.Reset();
    unsigned char byte = 0;
    if (!ReceiveAll(ready_.client.Get(), &byte, 1)) {
        throw std::runtime_error("the computing service did not start");
    }
}

}  // namespace zam_bench
