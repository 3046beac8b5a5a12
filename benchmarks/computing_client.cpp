#include "computing_client.h"

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <stdexcept>

#include "computing.h"
#include "computing_service.h"
#include "vd/service_locator.h"
#include "vd/zor_transport.h"

namespace zam_bench {
namespace {

template <typename Value>
bool Send(int socket, const Value* values, std::size_t count) {
    return SendAll(socket, reinterpret_cast<const unsigned char*>(values), count * sizeof(Value));
}

template <typename Value>
bool Receive(int socket, Value* values, std::size_t count) {
    return ReceiveAll(socket, reinterpret_cast<unsigned char*>(values), count * sizeof(Value));
}

double ThreadCpuMicroseconds() {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

/// CPU time that reading the CPU clock takes.
double ClockMicroseconds() {
    constexpr int kReads = 2000;
    const double before = ThreadCpuMicroseconds();
    double last = before;
    for (int read = 0; read < kReads; ++read) {
        last = ThreadCpuMicroseconds();
    }
    return (last - before) / kReads;
}

class Caller {
public:
    Caller() {
        const std::uint32_t handle = ServiceLocatorConnect(kComputingService);
        VdZorTransport_Init(&transport_, handle, 0, 0);
        riid_ = ServiceLocatorGetRiid(handle, kComputingEndpoint);
        Call(std::chrono::nanoseconds(0));
    }

    CallTimes Execute(const CallOrder& order) {
        CallTimes times;
        times.calls.reserve(order.calls);
        const bool thinks = order.think.count() != 0;
        double thought = 0;
        const double cpuBefore = CpuMicroseconds(0);
        for (std::size_t call = 0; call < order.calls; ++call) {
            if (thinks) {
                // Thinking ends by the wall clock: what it costs is less while others run.
                const double start = ThreadCpuMicroseconds();
                Compute(order.think);
                thought += ThreadCpuMicroseconds() - start + clock_;
            }
            const double before = NowMicroseconds();
            Call(order.handler);
            times.calls.push_back(static_cast<float>(NowMicroseconds() - before));
        }
        times.cpu = CpuMicroseconds(0) - cpuBefore - thought;
        return times;
    }

private:
    void Call(std::chrono::nanoseconds handler) {
        ComputeMessage request{};
        ComputeMessage response{};
        request.header.riid = response.header.riid = riid_;
        request.header.fixedSize = response.header.fixedSize = sizeof(ComputeMessage);
        request.nanoseconds = static_cast<std::uint64_t>(handler.count());
        if (transport_.ops->call(&transport_, &request.header, nullptr, &response.header,
                                 nullptr) != 0) {
            throw std::runtime_error("a call to the computing service failed");
        }
    }

    VdZorTransport transport_{};
    std::uint16_t riid_ = 0;
    const double clock_ = ClockMicroseconds();
};

void Serve(int socket) {
    Caller caller;
    const double ready = 0;
    CallOrder order{};
    bool isWanted = Send(socket, &ready, 1);
    while (isWanted && Receive(socket, &order, 1)) {
        const CallTimes times = caller.Execute(order);
        isWanted =
            Send(socket, &times.cpu, 1) && Send(socket, times.calls.data(), times.calls.size());
    }
}

}  // namespace

ComputingClient::ComputingClient(const std::string& runtimeDirectory)
    : sockets_(MakeSocketPair()), child_([&] {
          sockets_.client.Reset();
          ::setenv("ZAM_RUNTIME_DIR", runtimeDirectory.c_str(), 1);
          Serve(sockets_.server.Get());
      }) {
    sockets_.server.Reset();
    Await();
}

void ComputingClient::Start(const CallOrder& order) {
    started_ = order.calls;
    if (!Send(sockets_.client.Get(), &order, 1)) {
        throw std::runtime_error("a calling process is gone");
    }
}

CallTimes ComputingClient::Await() {
    CallTimes times;
    times.calls.resize(started_);
    if (!Receive(sockets_.client.Get(), &times.cpu, 1) ||
        !Receive(sockets_.client.Get(), times.calls.data(), times.calls.size())) {
        throw std::runtime_error("a calling process is gone");
    }
    return times;
}

}  // namespace zam_bench
