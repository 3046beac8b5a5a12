#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <list>
#include <stdexcept>
#include <string>
#include <vector>

#include "endpoints/endpoint_catalog.h"
#include "ping_pong.h"
#include "process.h"
#include "qx/messages.h"
#include "service.h"
#include "suites.h"
#include "zam_platform/frame.h"

namespace zam_bench {
namespace {

constexpr std::uint32_t kClients = 1000;
constexpr int kRounds = 9;

/// A registered client's connection, which waits for notices.
class WaitingClient {
public:
    WaitingClient(const std::string& path, std::uint32_t number)
        : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (path.size() >= sizeof(address.sun_path)) {
            throw std::runtime_error("the socket's path is too long");
        }
        std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
        if (::connect(socket_.Get(), reinterpret_cast<const sockaddr*>(&address),
                      sizeof(address)) != 0) {
            throw std::runtime_error("no connection");
        }
        zam_platform::SessionToken token{};
        std::memcpy(token.data(), &number, sizeof(number));
        Send(zam_platform::FrameKind::Hello, token.data(), token.size());
        qx::EmptyRequest request{};
        Call(request.header, 0, &request, sizeof(request));
        registrationId_ = Receive<qx::RegisterResponse>().registrationId;
        Ask();
    }

    void Ask() {
        qx::RegistrationRequest request{};
        request.registrationId = registrationId_;
        Call(request.header, 1, &request, sizeof(request));
    }

    void Await() {
        if (Receive<qx::NoticeResponse>().status != 0) {
            throw std::runtime_error("a client was told nothing");
        }
    }

private:
    void Call(vd_message_header& header, std::uint16_t operation, const void* request,
              std::uint32_t bytes) {
        header.riid = zam_service::EndpointOf("ZamDataNotifier").riid;
        header.operation = operation;
        header.fixedSize = bytes;
        Send(zam_platform::FrameKind::Call, request, bytes);
    }

    void Send(zam_platform::FrameKind kind, const void* fixed, std::size_t bytes) {
        std::vector<unsigned char> frame(zam_platform::kPreludeBytes + bytes);
        zam_platform::EncodePrelude(
            {.kind = kind, .callNumber = 1, .fixedBytes = static_cast<std::uint32_t>(bytes)},
            frame.data());
        std::memcpy(frame.data() + zam_platform::kPreludeBytes, fixed, bytes);
        if (!SendAll(socket_.Get(), frame.data(), frame.size())) {
            throw std::runtime_error("the service is gone");
        }
    }

    template <typename Response>
    Response Receive() {
        std::array<unsigned char, zam_platform::kPreludeBytes + sizeof(Response)> frame{};
        if (!ReceiveAll(socket_.Get(), frame.data(), frame.size())) {
            throw std::runtime_error("the service is gone");
        }
        Response response{};
        std::memcpy(&response, frame.data() + zam_platform::kPreludeBytes, sizeof(response));
        return response;
    }

    zam_platform::UniqueFd socket_;
    std::uint32_t registrationId_ = 0;
};

double ResidentKiB(pid_t process) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:") {
            double kib = 0;
            status >> kib;
            return kib;
        }
    }
    throw std::runtime_error("no memory figure of the service");
}

double Threads(pid_t process) {
    const std::string tasks = "/proc/" + std::to_string(process) + "/task";
    return static_cast<double>(std::distance(std::filesystem::directory_iterator(tasks),
                                             std::filesystem::directory_iterator()));
}

}  // namespace

void MeasureFanout(Report& report) {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);

    const Service service("0");
    std::list<WaitingClient> clients;
    clients.emplace_back(service.SocketPath(), 0);
    const double memory = ResidentKiB(service.Pid());
    const double threads = Threads(service.Pid());
    for (std::uint32_t number = 1; number <= kClients; ++number) {
        clients.emplace_back(service.SocketPath(), number);
    }
    report.Add({"notice.fanout1000",
                "memory_each",
                "KiB",
                (ResidentKiB(service.Pid()) - memory) / kClients,
                {}});

    std::vector<double> times;
    std::vector<double> cpu;
    for (int round = 1; round <= kRounds; ++round) {
        const double cpuBefore = CpuMicroseconds(service.Pid());
        const double before = NowMicroseconds();
        service.WritePolicy(std::to_string(round));
        for (WaitingClient& client : clients) {
            client.Await();
        }
        times.push_back(NowMicroseconds() - before);
        cpu.push_back(CpuMicroseconds(service.Pid()) - cpuBefore);
        for (WaitingClient& client : clients) {
            client.Ask();
        }
    }
    report.Add({"notice.fanout1000", "last_told", "us", Median(times), {}});
    report.Add({"notice.fanout1000", "service_cpu", "us", Median(cpu), {}});
    report.Add({"notice.fanout1000", "more_threads", "", Threads(service.Pid()) - threads, {}});
}

}  // namespace zam_bench
