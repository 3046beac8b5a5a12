#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "ping_pong.h"
#include "process.h"
#include "suites.h"

namespace {

struct Suite {
    const char* name;
    void (*measure)(zam_bench::Report& report);
};

constexpr std::array kSuites = std::to_array<Suite>({
    {"call.getstate", &zam_bench::MeasureGetState}, {"call.deadline", &zam_bench::MeasureGetState},
        {"call.channel", &zam_bench::MeasureChannels}, {"call.idle", &zam_bench::MeasureIdleness},
        {"call.clients8", &zam_bench::MeasureEightClients},
        {"call.allocations", &zam_bench::MeasureAllocations}, {"tree", &zam_bench::MeasureTrees},
        {"pull.policy", &zam_bench::MeasurePulls}, {"push.settings", &zam_bench::MeasurePushes},
        {"notice.latency", &zam_bench::MeasureNotices},
        {"notice.fanout1000", &zam_bench::MeasureFanout},
        {"queue.throughput", &zam_bench::MeasureQueues},
        {"create.connector", &zam_bench::MeasureCreation},
        {"file.stream", &zam_bench::MeasureFiles}, {"file.get", &zam_bench::MeasureFiles},
        {"fair", &zam_bench::MeasureFairness}, {"data.load", &zam_bench::MeasureLoads},
        {"start.process", &zam_bench::MeasureStarts}, {"retry.away", &zam_bench::MeasureRetries},
        {"size.library", &zam_bench::MeasureLibrarySize},
        {"peer.nlohmann_cbor", &zam_bench::MeasureTrees},
#if ZAM_BENCH_PROTOBUF
        {"peer.protobuf_struct", &zam_bench::MeasureTrees},
#endif
#if ZAM_BENCH_MSGPACK
        {"peer.msgpack", &zam_bench::MeasureTrees},
#endif
#if ZAM_BENCH_BOOST_JSON
        {"peer.boost_json", &zam_bench::MeasureTrees},
#endif
#if ZAM_BENCH_GRPC
        {"peer.grpc.pull", &zam_bench::MeasurePulls},
#endif
});

/// Measures in a process of its own: the heap that one suite leaves in pieces, and what the library
/// has read of the environment there, are not the next one's.
void Measure(const Suite& suite, zam_bench::Report& report) {
    zam_bench::SocketPair sockets = zam_bench::MakeSocketPair();
    const int mine = sockets.server.Get();
    std::size_t bytes = 0;
    const auto raw = [](auto* of) { return reinterpret_cast<unsigned char*>(of); };
    zam_bench::Child child([&] {
        zam_bench::Report own = report.Empty();
        suite.measure(own);
        std::string packed = own.Packed();
        bytes = packed.size();
        if (!zam_bench::SendAll(sockets.client.Get(), raw(&bytes), sizeof(bytes)) ||
            !zam_bench::SendAll(sockets.client.Get(), raw(packed.data()), bytes)) {
            throw std::runtime_error("nobody takes what was measured");
        }
    });
    sockets.client.Reset();
    std::string packed;
    if (zam_bench::ReceiveAll(mine, raw(&bytes), sizeof(bytes))) {
        packed.resize(bytes);
        zam_bench::ReceiveAll(mine, raw(packed.data()), bytes);
    }
    child.Join();
    report.AddPacked(packed);
}

}  // namespace

/// zam_bench RESULTS.json [NAME...]: measures the rows whose names begin with one of the names,
/// all without any.
int main(int argc, char** argv) try {
    if (argc < 2) {
        std::fprintf(stderr, "usage: zam_bench RESULTS.json [NAME...]\n");
        return 1;
    }
    zam_bench::Report report(std::vector<std::string>(argv + 2, argv + argc));
    std::vector<decltype(Suite::measure)> done;  // one suite measures the rows of two names
    for (const Suite& suite : kSuites) {
        if (report.Wants(suite.name) &&
            std::find(done.begin(), done.end(), suite.measure) == done.end()) {
            done.push_back(suite.measure);
            std::fprintf(stderr, "measuring %s\n", suite.name);
            Measure(suite, report);
        }
    }
    if (report.IsEmpty()) {
        std::fprintf(stderr, "zam_bench: no row's name begins so; the names are:\n");
        for (const Suite& suite : kSuites) {
            std::fprintf(stderr, "  %s\n", suite.name);
        }
        return 1;
    }
    std::fputs(report.Table().c_str(), stdout);
    report.WriteJson(argv[1]);
    return 0;
} catch (const std::exception& exception) {
    std::fprintf(stderr, "zam_bench: %s\n", exception.what());
    return 2;
}
