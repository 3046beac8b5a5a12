#include <fmt/format.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "channels/rebuild_meter.h"
#include "channels/upload_quota.h"
#include "data/tree_bounds.h"
#include "data_client.h"
#include "support/eventually.h"
#include "support/other_user.h"
#include "support/temporary_folder.h"
#include "zam_connector_testing/service_process.h"

namespace zam_service {
namespace {

using zam_connector::common::RawZamParam;
using zam_service::testing::DataClient;
using zam_service::testing::RawList;
using zam_test::Eventually;

constexpr std::size_t kMiB = std::size_t{1} << 20U;

/// What the service takes without any data, in any build.
constexpr std::size_t kEmptyBytes = 64 * kMiB;

/// How often it is waited for a policy that is read.
constexpr std::size_t kBounds = 5;

/// Everything is by so much smaller than its bound, unless full sizes are asked for.
std::size_t Scale() {
    const char* const wanted = std::getenv("ZAM_FULL_SIZE");
    return wanted != nullptr && std::string(wanted) == "1" ? 1 : 64;
}

/// A size from a systemd unit, as in "MemoryMax=6G".
std::size_t GibibytesIn(const std::string& unit, const std::string& name) {
    const std::size_t at = unit.find("\n" + name + "=");
    return at == std::string::npos ? 0
                                   : std::stoul(unit.substr(at + name.size() + 2)) * 1024 * kMiB;
}

/// The most memory that a process has had, in bytes.
std::size_t PeakOf(pid_t process) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string word; status >> word;) {
        if (word == "VmHWM:") {
            std::size_t kib = 0;
            status >> kib;
            return kib * 1024;
        }
    }
    return 0;
}

/// The worst of policies: as many nodes as may be, with as much text as may be.
std::string LargestPolicy(char letter) {
    const TreeBounds bounds;
    const std::size_t nodes = bounds.nodes / Scale() - 1;
    std::string text = "[\"\"";
    const std::string node = ",\"" + std::string(36, letter) + "\"";
    for (std::size_t index = 1; index < nodes; ++index) {
        text += node;
    }
    return text + "]";
}

/// Sends pieces of a map with values of so many bytes until no more of them are taken.
std::int64_t FillUpload(DataClient& client, std::size_t valueBytes) {
    const zuv::Map map{{"k", std::string(valueBytes, 'v')}};
    const RawList records = zam_service::testing::Flattened(zuv::TValue(map));
    const std::int64_t channel = client.OpenEulas();
    RebuildMeter meter;
    std::size_t bytes = meter.Add(records[0]);
    RawList piece = {records[0]};
    for (std::size_t number = 0;; ++number) {
        RawZamParam record = records[1];
        record.path = fmt::format("k{:08}/", number);
        bytes += meter.Add(record);
        if (bytes > kMaxUploadBytes / Scale()) {
            break;
        }
        piece.push_back(std::move(record));
        if (piece.size() == 10) {
            EXPECT_EQ(client.Send(channel, std::exchange(piece, {})), 0);
        }
    }
    if (!piece.empty()) {
        EXPECT_EQ(client.Send(channel, piece), 0);
    }
    return channel;
}

/// One user's uploads, of many small nodes and of few large ones, both as large as may be.
class FullUploads {
public:
    FullUploads() : small_(FillUpload(client_, 1)), large_(FillUpload(client_, 60'000)) {}

    void Close() {
        EXPECT_EQ(client_.CloseUpload(small_).code, 0);
        EXPECT_EQ(client_.CloseUpload(large_).code, 0);
    }

private:
    DataClient client_;
    std::int64_t small_;
    std::int64_t large_;
};

/// Another user's client in a process of its own: says when its uploads are full, and closes them
/// when it is told.
[[noreturn]] void UploadAsSomebodyElse(gid_t group, int full, int close) {
    char byte = 'x';
    if (::setgroups(0, nullptr) != 0 || ::setgid(group) != 0 ||
        ::setuid(zam_test::kSomebodyElse) != 0) {
        ::_exit(1);
    }
    FullUploads uploads;
    if (::write(full, &byte, 1) != 1 || ::read(close, &byte, 1) != 1) {
        ::_exit(2);
    }
    uploads.Close();
    ::_exit(::testing::Test::HasFailure() ? 3 : 0);
}

TEST(MemoryOfTheService, StaysBelowItsUnitsBoundWithTheLargestPolicyAndTwoUsersFullUploads) {
    const group* const entry = ::getgrnam("nogroup");
    if (::geteuid() != 0 || entry == nullptr) {
        GTEST_SKIP() << "only root can be another user";
    }
    zam_connector::testing::ServiceProcess service(ZAM_CONNECTORD);
    const std::filesystem::path runtime = service.RuntimeDirectory();
    for (const std::filesystem::path& folder : {runtime, runtime.parent_path()}) {
        ASSERT_EQ(::chmod(folder.c_str(), 0755), 0);
    }
    service.Start({"--group", "nogroup"});
    ::setenv("ZAM_RUNTIME_DIR", service.RuntimeDirectory().c_str(), 1);

    std::array<int, 2> full{};
    std::array<int, 2> close{};
    ASSERT_TRUE(::pipe(full.data()) == 0 && ::pipe(close.data()) == 0);
    const pid_t other = ::fork();
    if (other == 0) {
        UploadAsSomebodyElse(entry->gr_gid, full[1], close[0]);
    }
    ::close(full[1]);
    FullUploads own;
    char byte = 'x';
    ASSERT_EQ(::read(full[0], &byte, 1), 1);

    DataClient client;
    for (const char letter : {'a', 'b'}) {  // one is served while the other is read
        const std::uint64_t before = client.PolicyHash();
        service.WriteData("policy.json", LargestPolicy(letter));
        bool isServed = false;
        // At full size it takes a while, the longer the less a build is optimised.
        for (std::size_t bound = 0; bound < kBounds && !isServed; ++bound) {
            isServed = Eventually([&] { return client.PolicyHash() != before; });
        }
        ASSERT_TRUE(isServed);
    }
    ASSERT_EQ(::write(close[1], &byte, 1), 1);
    own.Close();
    int status = -1;
    ASSERT_EQ(::waitpid(other, &status, 0), other);
    EXPECT_EQ(status, 0);

    const std::string unit = zam_test::Content(ZAM_UNIT);
    const std::size_t most = GibibytesIn(unit, "MemoryMax");
    const std::size_t high = GibibytesIn(unit, "MemoryHigh");
    ASSERT_GT(most, high);
    const std::size_t peak = PeakOf(service.Pid());
    RecordProperty("peak_MiB", static_cast<int>(peak / kMiB));
    EXPECT_LT(peak, high / Scale() + kEmptyBytes);
    for (const int descriptor : {full[0], close[0], close[1]}) {
        ::close(descriptor);
    }
}

}  // namespace
}  // namespace zam_service
