#include <linux/magic.h>
#include <sys/vfs.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "bare_upload.h"
#include "policy_tree.h"
#include "service.h"
#include "subject.h"
#include "suites.h"
#include "support/scoped_environment.h"
#include "way.h"

namespace zam_bench {
namespace {

constexpr Size kSize{"100k", 100'000, 1};

/// Where the service keeps its data: in memory, and where this program was built.
struct Disk {
    const char* name;
    const char* folder;
    bool isMemory;
};
constexpr std::array<Disk, 2> kDisks = {
    {{"tmpfs", "/dev/shm", true}, {"disk", ZAM_BENCH_FOLDER, false}}};

/// What a machine has not got is not measured.
bool IsThere(const Disk& disk) {
    struct statfs status {};
    const bool isThere =
        ::statfs(disk.folder, &status) == 0 && (status.f_type == TMPFS_MAGIC) == disk.isMemory;
    if (!isThere) {
        static_cast<void>(std::fprintf(stderr, "%s is no %s: left out\n", disk.folder, disk.name));
    }
    return isThere;
}

Work PushWork(const zuv::TValue& tree) {
    const auto connection = std::make_shared<zam_connector::test::RealConnection>();
    const auto settings = std::make_shared<zam_connector::ZamProductSettings>();
    settings->tree = tree;
    return {[connection, settings] {
                unsigned long hash = 0;
                if (connection->ProductDataHolder().SetSettings(*settings, hash) != 0) {
                    throw std::runtime_error("SetSettings failed");
                }
            },
            [] {}};
}

/// A service, and a client that pushes a tree to it.
struct Pushing {
    std::unique_ptr<Service> service;
    std::unique_ptr<Subject> client;
};

Pushing StartPushing(const zuv::TValue& tree, const Placement& placement, Way way) {
    const auto environment = Take(way);
    Pushing pushing;
    pushing.service = std::make_unique<Service>();
    Pin(pushing.service->Pid(), placement.server);
    pushing.client = std::make_unique<Subject>("push.settings", kSize, [&] {
        Pin(0, placement.client);
        return PushWork(tree);
    });
    return pushing;
}

void MeasureAt(Report& report, const zuv::TValue& tree, const Placement& placement,
               const std::string& metric) {
    const BareUploadServer bare(tree);
    Pin(bare.Pid(), placement.server);
    Subject bareClient("bare push", kSize, [&] {
        Pin(0, placement.client);
        return Work{bare.Client(), [] {}};
    });
    const Pushing socket = StartPushing(tree, placement, Way::Socket);
    const Pushing free = StartPushing(tree, placement, Way::Free);
    const auto rounds = RoundsInTurns({&bareClient, socket.client.get(), free.client.get()});
    report.Add(Compared("push.settings", metric, "ns/node", rounds[2], rounds[0]));
    report.Add(Compared("push.settings", metric + ".socket", "ns/node", rounds[2], rounds[1]));
}

}  // namespace

void MeasurePushes(Report& report) {
    KeepHeap();
    const zuv::TValue tree = MakePolicyTree(kSize.nodes);
    for (const Disk& disk : kDisks) {
        if (!IsThere(disk)) {
            continue;
        }
        const zam_test::ScopedEnvironment folder("TMPDIR", disk.folder);
        for (const Placement& placement : kPlacements) {
            const std::string metric =
                std::string(kSize.name) + "." + placement.name + "." + disk.name;
            if (report.Wants("push.settings." + metric)) {
                MeasureAt(report, tree, placement, metric);
            }
        }
    }
}

}  // namespace zam_bench
