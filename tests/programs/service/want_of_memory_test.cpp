#include <gtest/gtest.h>

#include <algorithm>
#include <asio/io_context.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "data/history.h"
#include "data/tree_snapshot.h"
#include "data/upload_file.h"
#include "fake_waiter.h"
#include "lanes.h"
#include "link/connector_link.h"
#include "notices/notice_board.h"
#include "result_codes.h"
#include "run_until.h"
#include "support/allocations.h"
#include "support/flattened.h"
#include "support/quiet_logger.h"
#include "support/temporary_folder.h"
#include "zam_connector_testing/recording_logger.h"
#include "zam_platform/server/alarm.h"
#include "zam_platform/server/session_registry.h"

// Parts of the service whose allocations fail one after the other: nothing is lost by it that
// nobody was told of.

namespace zam_service {
namespace {

using zam_connector::ZamConnectorState;
using zam_service::testing::ClientOf;
using zam_service::testing::FakeWaiter;
using zam_service::testing::RunUntil;
using zam_service::testing::Told;

constexpr std::uint32_t kValue = 5;

/// Has `run` called with its first allocation failing, its second, and so on, until none fails.
void Sweep(bool keepsFailing, const std::function<void(const std::function<void()>& begin)>& run) {
    zam_test::g_isMarkedThread = true;
    zam_test::g_failingThreads = zam_test::FailingThreads::Marked;
    zam_test::g_keepFailing = keepsFailing;
    for (int allowed = 0;; ++allowed) {
        SCOPED_TRACE(allowed);
        zam_test::g_failed = false;
        run([allowed] { zam_test::g_allocationsLeft = allowed; });
        EXPECT_EQ(zam_test::g_allocationsLeft, -1) << "the run has switched it off again";
        if (::testing::Test::HasFailure() || !zam_test::g_failed) {
            EXPECT_GT(allowed, 0);
            break;
        }
    }
}

void Stop() {
    zam_test::g_allocationsLeft = -1;
}

class WantOfMemoryInTheService : public ::testing::TestWithParam<bool> {
protected:
    zam_test::QuietLogger logger_;
};

INSTANTIATE_TEST_SUITE_P(Once, WantOfMemoryInTheService, ::testing::Values(false));
INSTANTIATE_TEST_SUITE_P(FromThenOn, WantOfMemoryInTheService, ::testing::Values(true));

TEST_P(WantOfMemoryInTheService, LosesNoNotice) {
    Sweep(GetParam(), [](const std::function<void()>& begin) {
        NoticeBoard board({.sort = "data", .coalesces = true}, 7,
                          [] { return std::vector<std::uint32_t>{kValue}; });
        constexpr unsigned char kClients = 3;
        std::vector<std::uint32_t> ids;
        std::vector<std::shared_ptr<Told>> waits;
        const auto wait = [&](unsigned char client) {
            auto told = std::make_shared<Told>();
            board.Wait(ClientOf(client), ids.at(client), std::make_unique<FakeWaiter>(told));
            return told;
        };
        for (unsigned char client = 0; client < kClients; ++client) {
            ids.push_back(board.Register(ClientOf(client)).value_or(0));
            waits.push_back(wait(client));
        }
        begin();
        board.Tell(kValue);
        Stop();
        for (unsigned char client = 0; client < kClients; ++client) {
            const auto told = waits[client]->value ? waits[client] : wait(client);
            ASSERT_EQ(told->value, kValue) << "client " << int{client};
            told->onDelivery(true);
            EXPECT_FALSE(board.HasInFlight(ClientOf(client).token, ids[client]));
            EXPECT_FALSE(wait(client)->value) << "told once";
        }
    });
}

TEST_P(WantOfMemoryInTheService, KeepsANoticeThatWasNotTaken) {
    Sweep(GetParam(), [](const std::function<void()>& begin) {
        NoticeBoard board({.sort = "data", .coalesces = true}, 7,
                          [] { return std::vector<std::uint32_t>{kValue}; });
        const std::uint32_t id = board.Register(ClientOf(1)).value_or(0);
        const auto first = std::make_shared<Told>();
        const auto second = std::make_shared<Told>();
        board.Wait(ClientOf(1), id, std::make_unique<FakeWaiter>(first));
        board.Tell(kValue);
        board.Wait(ClientOf(1), id, std::make_unique<FakeWaiter>(second));
        begin();
        first->onDelivery(false);
        Stop();
        const auto third = std::make_shared<Told>();
        if (!second->value) {
            board.Wait(ClientOf(1), id, std::make_unique<FakeWaiter>(third));
        }
        EXPECT_TRUE(second->value == kValue || third->value == kValue);
    });
}

TEST_P(WantOfMemoryInTheService, TakesUpARegistrationWhole) {
    constexpr std::uint32_t kOldId = (8U << kNoticeEpochShift) | 3U;
    Sweep(GetParam(), [](const std::function<void()>& begin) {
        NoticeBoard board({.sort = "data", .coalesces = true}, 7, [] {
            return std::vector<std::uint32_t>{1, 2};
        });
        auto told = std::make_shared<Told>();
        auto waiter = std::make_unique<FakeWaiter>(told);
        begin();
        try {
            board.Wait(ClientOf(1), kOldId, std::move(waiter));
        } catch (const std::bad_alloc&) {
            // The client comes again.
        }
        Stop();
        std::vector<std::uint32_t> values;
        for (int call = 0; call < 3; ++call) {
            if (told->value) {
                values.push_back(*told->value);
                told->onDelivery(true);
            }
            told = std::make_shared<Told>();
            board.Wait(ClientOf(1), kOldId, std::make_unique<FakeWaiter>(told));
            ASSERT_FALSE(told->end) << "it is known from now on";
        }
        EXPECT_EQ(std::set(values.begin(), values.end()), (std::set<std::uint32_t>{1, 2}));
    });
}

TEST_P(WantOfMemoryInTheService, ServesNoTreeWithoutAPiece) {
    Sweep(GetParam(), [](const std::function<void()>& begin) {
        begin();
        TreeSnapshotPtr tree;
        try {
            tree = AbsentTree();
        } catch (const std::bad_alloc&) {
            // Nothing is served.
        }
        Stop();
        EXPECT_TRUE(tree == nullptr || tree->pieces.size() == 1);
    });
}

TEST_P(WantOfMemoryInTheService, IsNoFaultOfAnUploadedTree) {
    const zam_test::TemporaryFolder folder;
    const FolderFiles files(folder.Path(""));
    zuv::Map map;
    map["a name that is no short text, and so takes memory"] = zuv::TValue(1);
    const zuv::TValue tree(std::move(map));
    Sweep(GetParam(), [&](const std::function<void()>& begin) {
        auto records = zam_test::Flattened(tree);
        int code = kInsufficientResources;
        begin();
        try {
            code = StoreTree(files, UploadKind::Settings, std::move(records)).code;
        } catch (const std::bad_alloc&) {
            // The upload before stands.
        }
        Stop();
        ASSERT_TRUE(code == kNoError || code == kInsufficientResources) << code;
    });
}

TEST_P(WantOfMemoryInTheService, IsNoFailureOfTheDisk) {
    const zam_test::TemporaryFolder folder;
    const FolderFiles files(folder.Path(""));
    const std::vector<std::string> lines = {"a line that is no short text, and so takes memory\n"};
    Sweep(GetParam(), [&](const std::function<void()>& begin) {
        HistoryFile file(files);
        begin();
        const HistoryFile::Result result = file.Append(lines);
        Stop();
        ASSERT_EQ(result.lacksMemory, result.written == 0) << result.error;
    });
}

/// The worker's, which writes the lines.
TEST_P(WantOfMemoryInTheService, IsToldToWhomALineIsOf) {
    const zam_test::TemporaryFolder folder;
    const FolderFiles files(folder.Path(""));
    asio::io_context loop;
    zam_platform::WorkerPool workers(1, kLaneCount, 8);
    Sweep(GetParam(), [&](const std::function<void()>& begin) {
        History history(loop, workers, files);
        std::optional<int> code;
        zam_test::g_failingThreads = zam_test::FailingThreads::Unmarked;
        begin();
        history.Append("a line that is no short text, and so takes memory\n",
                       [&code](int told) { code = told; });
        EXPECT_TRUE(RunUntil(loop, [&code] { return code.has_value(); }));
        Stop();
        ASSERT_TRUE(code == kNoError || code == kInsufficientResources) << *code;
    });
}

TEST(WantOfMemoryOfTheLoop, KeepsNoAlarmFromRinging) {
    zam_test::g_isMarkedThread = true;
    zam_test::g_failingThreads = zam_test::FailingThreads::Marked;
    zam_test::g_keepFailing = true;
    asio::io_context loop;
    constexpr std::size_t kAlarms = 10;
    std::vector<std::size_t> rung;
    rung.reserve(2 * kAlarms);
    std::vector<std::unique_ptr<zam_platform::Alarm>> alarms;
    for (std::size_t number = 0; number < kAlarms; ++number) {
        alarms.push_back(std::make_unique<zam_platform::Alarm>(loop, [&, number] {
            rung.push_back(number);
            if (rung.size() == kAlarms) {
                alarms[0]->RingAfter(std::chrono::milliseconds(1));
            }
        }));
    }
    zam_test::g_allocationsLeft = 0;
    for (std::size_t number = 0; number < kAlarms; ++number) {
        alarms[number]->RingAfter(std::chrono::milliseconds(2 * (kAlarms - number)));
    }
    loop.run();
    zam_test::g_allocationsLeft = -1;
    // Some that were due together when the loop came to them may have changed places.
    std::sort(rung.begin(), rung.end());
    EXPECT_EQ(rung, (std::vector<std::size_t>{0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_TRUE(zam_test::g_failed) << "the loop itself wanted some for so many";
}

TEST(WantOfMemoryOfTheLoop, IsNoneForAnAlarmThatIsSetAgain) {
    asio::io_context loop;
    bool hasRung = false;
    zam_platform::Alarm alarm(loop, [&hasRung] { hasRung = true; });
    alarm.RingAfter(std::chrono::hours(1));
    const int before = zam_test::g_allocations;
    alarm.RingAfter(std::chrono::hours(2));
    alarm.RingAfter(std::chrono::milliseconds(1));
    alarm.Cancel();
    alarm.RingAfter(std::chrono::milliseconds(1));
    EXPECT_EQ(zam_test::g_allocations, before);
    loop.run();
    EXPECT_TRUE(hasRung);
}

TEST_P(WantOfMemoryInTheService, LeavesNoHalfOfASession) {
    Sweep(GetParam(), [](const std::function<void()>& begin) {
        asio::io_context loop;
        zam_platform::SessionRegistry sessions(loop, {}, 1);
        std::size_t ended = 0;
        sessions.OnEnd([&ended](const zam_platform::SessionToken&) { ++ended; });
        std::optional<zam_platform::Attachment> attached;
        begin();
        try {
            attached = sessions.Attach(ClientOf(1));
        } catch (const std::bad_alloc&) {
            // Its client comes again.
        }
        Stop();
        ASSERT_EQ(attached ? *attached : sessions.Attach(ClientOf(1)),
                  zam_platform::Attachment::Done);
        sessions.Detach(ClientOf(1).token);
        ASSERT_TRUE(RunUntil(loop, [&ended] { return ended == 1; }));
        ASSERT_EQ(sessions.Attach(ClientOf(2)), zam_platform::Attachment::Done);
    });
}

/// A link whose history is on the disk.
class LinkWithoutMemory {
public:
    LinkWithoutMemory() {
        ConnectionPlan plan;
        plan.start = {{ZamConnectorState::Connecting, {}}, {ZamConnectorState::Connected, {}}};
        plan.stop = {{ZamConnectorState::Stopped, {}}};
        plan.sync = {};
        link_.SetPlan(plan);
        link_.OnState([this](ZamConnectorState state) { states_.push_back(state); });
        states_.reserve(8);
    }
    ~LinkWithoutMemory() {
        link_.Close();
        workers_.Finish();
        history_.Close();
        loop_.restart();
        loop_.poll();
    }

    int Start() {
        return CodeOf([this] {
            zam_connector::ZamConnectionParameters parameters;
            parameters.serverAddress = "an.address.that.takes.memory.example";
            parameters.serverPort = 1;
            return link_.Start(0, parameters);
        });
    }
    int StopIt() {
        return CodeOf([this] { return link_.Stop(0); });
    }
    int ScheduleSync() {
        code_.reset();
        return CodeOf([this] {
            link_.ScheduleSync(0, [this](int code) { code_ = code; });
            return 0;
        });
    }
    bool Until(const std::function<bool()>& isSo) { return RunUntil(loop_, isSo); }

    std::optional<int> code_;  ///< of the synchronisation
    std::vector<ZamConnectorState> states_;

private:
    static int CodeOf(const std::function<int()>& call) {
        try {
            return call();
        } catch (const std::bad_alloc&) {
            return -1;
        }
    }

    zam_test::TemporaryFolder folder_;
    FolderFiles files_{folder_.Path("")};
    asio::io_context loop_;
    zam_platform::WorkerPool workers_{1, kLaneCount, 8};
    History history_{loop_, workers_, files_};
    ConnectorLink link_{loop_, history_};
};

TEST_P(WantOfMemoryInTheService, LeavesTheLinkStartedOrNot) {
    Sweep(GetParam(), [](const std::function<void()>& begin) {
        LinkWithoutMemory link;
        begin();
        const int code = link.Start();
        Stop();
        ASSERT_EQ(link.Start(), code == 0 ? 1 : 0);
        const std::vector<ZamConnectorState> kStart = {ZamConnectorState::Connecting,
                                                       ZamConnectorState::Connected};
        ASSERT_TRUE(link.Until([&] { return link.states_ == kStart; }));
        link.states_.clear();
        begin();
        const int stopped = link.StopIt();
        Stop();
        ASSERT_EQ(link.StopIt(), stopped == 0 ? 1 : 0);
        ASSERT_TRUE(link.Until([&] {
            return link.states_ == std::vector<ZamConnectorState>{ZamConnectorState::Stopped};
        }));
    });
}

TEST_P(WantOfMemoryInTheService, LeavesNoSynchronisationPendingThatWasRefused) {
    Sweep(GetParam(), [](const std::function<void()>& begin) {
        LinkWithoutMemory link;
        ASSERT_EQ(link.Start(), 0);
        begin();
        const int thrown = link.ScheduleSync();
        Stop();
        if (thrown == 0) {
            ASSERT_TRUE(link.Until([&] { return link.code_.has_value(); }));
        }
        if (thrown != 0 || link.code_ != 0) {
            ASSERT_EQ(link.ScheduleSync(), 0);
            ASSERT_TRUE(link.Until([&] { return link.code_ == 0; }));
        }
    });
}

}  // namespace
}  // namespace zam_service
