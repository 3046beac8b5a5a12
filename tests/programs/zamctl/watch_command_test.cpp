#include <thread>

#include "command_fixture.h"
#include "support/lines.h"
#include "watch/notice_queue.h"

namespace zamctl::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::SizeIs;
using zam_connector::ZamConnectorState;
using namespace std::chrono_literals;

class WatchCommandTest : public CommandTest {
protected:
    void TellEverything() {
        FakeDataChangeSubscriber& data = provider_.dataChangeSubscriber;
        data.policy.Tell({1, {zuv::TValue(zuv::Map{{"a", zuv::TValue(true)}})}});
        data.settings.Tell({2, {}});
        zam_connector::ZamSubscriptions subscriptions;
        subscriptions.events["door"] = {};
        data.subscriptions.Tell({3, subscriptions});
        zam_connector::ZamServerData server;
        server.versionMajor = 14;
        data.serverData.Tell(server);
        data.cert.Tell("PEM");
        data.updates.Tell({4, {}});
        data.synced.Tell(5);
        provider_.stateSubscriber.state.Tell(ZamConnectorState::Connected);
    }
};

TEST_F(WatchCommandTest, PrintsADocumentForEveryKind) {
    clock_.steps = {[this] { TellEverything(); }};
    const Ran ran = Run({"--json", "watch"});
    EXPECT_EQ(ran.status, 0);
    const std::string time = R"("time":"2026-01-31T12:34:56.789Z")";
    const std::string first = R"("since_previous_ms":null})";
    EXPECT_EQ(
        ran.out,
        R"({"kind":"policy",)" + time + R"(,"hash":"0x0000000000000001","nodes":2,)" + first +
            "\n" + R"({"kind":"product-settings",)" + time +
            R"(,"hash":"0x0000000000000002","nodes":1,)" + first + "\n" +
            R"({"kind":"subscriptions",)" + time + R"(,"hash":"0x0000000000000003","events":1,)" +
            first + "\n" + R"({"kind":"server-data",)" + time +
            R"(,"version_major":14,"version_minor":0,"clock_offset_s":0,)"
            R"("device_status":"unmanaged","offers_files":false,"wants_diagnostics":false,)"
            R"("requires_client_cert":false,)" +
            first + "\n" + R"({"kind":"reserve-cert",)" + time + R"(,"bytes":3,)" + first + "\n" +
            R"({"kind":"updates-status",)" + time + R"(,"hash":"0x0000000000000004","updates":0,)" +
            first + "\n" + R"({"kind":"settings-synced",)" + time +
            R"(,"hash":"0x0000000000000005",)" + first + "\n" + R"({"kind":"state",)" + time +
            R"(,"state":"connected",)" + first + "\n");
    EXPECT_THAT(ran.err, HasSubstr("8 notices in "));
}

TEST_F(WatchCommandTest, WaitsWithoutLimitForWhatComes) {
    bool isLimited = true;
    clock_.steps = {[&] { isLimited = clock_.runEnd.has_value(); }};
    EXPECT_EQ(Run({"--timeout", "1", "watch"}).status, 0);
    EXPECT_FALSE(isLimited);
}

TEST_F(WatchCommandTest, PrintsALineForEachNoticeAndTheTimeSinceTheOneBefore) {
    FakeDataChangeSubscriber& data = provider_.dataChangeSubscriber;
    clock_.steps = {[&] { data.synced.Tell(7); },
                    [&] {
                        clock_.Advance(2500ms);
                        data.cert.Tell("x");
                        data.synced.Tell(8);
                    }};
    const Ran ran = Run({"watch", "settings-synced", "reserve-cert"});
    EXPECT_EQ(ran.status, 0);
    const std::string time = "2026-0[0-9]-[0-9]+ [0-9:]+\\.";
    EXPECT_THAT(
        zam_test::Lines(ran.out),
        ElementsAre(
            MatchesRegex(time + "789  settings-synced   0x0000000000000007  - +first"),
            MatchesRegex(time + "289  reserve-cert      -                   1 byte +first"),
            MatchesRegex(time + "289  settings-synced   0x0000000000000008  - +\\+2\\.500 s")));
    EXPECT_EQ(ran.err, "watching settings-synced, reserve-cert\n3 notices in 2.500 s\n");
}

TEST_F(WatchCommandTest, EndsBehindAsManyNoticesAsItIsTold) {
    clock_.steps = {[this] { TellEverything(); }};
    const Ran ran = Run({"--quiet", "--json", "watch", "--count", "3"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_THAT(ran.Documents(), SizeIs(3));
    EXPECT_EQ(ran.err, "");
}

TEST_F(WatchCommandTest, EndsAtAnInterruptWithEveryObserverRemoved) {
    const Ran ran = Run({"watch"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_TRUE(clock_.catching);
    EXPECT_EQ(ran.out, "");
    EXPECT_THAT(ran.err, HasSubstr("0 notices in "));
    EXPECT_THAT(provider_.dataChangeSubscriber.unsubscribed, ElementsAre(1, 2, 3, 4, 5, 6, 7));
    EXPECT_THAT(provider_.stateSubscriber.unsubscribed, ElementsAre(1));
}

TEST_F(WatchCommandTest, KeepsAPolicyObserverWhereTheOthersDoNotKeepTheNotificationsRunning) {
    FakeDataChangeSubscriber& data = provider_.dataChangeSubscriber;
    clock_.steps = {[&] { data.policy.Tell({1, {}}); }, [&] { data.cert.Tell("x"); }};
    EXPECT_THAT(Run({"--json", "watch", "reserve-cert"}).Documents(), SizeIs(1));
    EXPECT_EQ(data.policy.Size(), 1U);
    EXPECT_EQ(data.unsubscribed.size(), data.subscribed);
    Run({"watch", "subscriptions", "reserve-cert"});
    Run({"state", "--watch"});
    EXPECT_EQ(data.policy.Size(), 1U);
}

TEST_F(WatchCommandTest, EndsWithoutAMessageWhenNobodyReads) {
    clock_.end = Clock::Wakeup::ReaderGone;
    const Ran ran = Run({"--quiet", "watch"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.err, "");
    EXPECT_TRUE(clock_.watchesReader);
}

TEST_F(WatchCommandTest, WatchesTheStateAlone) {
    const auto& state = provider_.stateSubscriber.state;
    clock_.steps = {[&] {
        state.Tell(ZamConnectorState::Connecting);
        state.Tell(ZamConnectorState::Connected);
        state.Tell(ZamConnectorState::Stopped);
    }};
    const Ran ran = Run({"--json", "state", "--watch", "--count", "2"});
    EXPECT_EQ(ran.status, 0);
    const std::vector<Json> documents = ran.Documents();
    ASSERT_THAT(documents, SizeIs(2));
    EXPECT_EQ(documents[0].at("state"), "connecting");
    EXPECT_EQ(documents[1].at("state"), "connected");
    EXPECT_EQ(documents[1].at("since_previous_ms"), 0);
    EXPECT_EQ(provider_.dataChangeSubscriber.subscribed, 0U);
}

TEST_F(WatchCommandTest, EndsWithStatusTwoWhenItCannotSubscribe) {
    provider_.stateSubscriber.code = static_cast<int>(0x80000045U);
    const Ran ran = Run({"watch"});
    ExpectFailure(ran, 2);
    EXPECT_THAT(ran.err, HasSubstr("cannot subscribe to changes of the state: the service answered "
                                   "0x80000045 Access denied"));
    EXPECT_THAT(provider_.dataChangeSubscriber.unsubscribed, SizeIs(7));
    EXPECT_THAT(provider_.stateSubscriber.unsubscribed, SizeIs(1));
}

TEST_F(WatchCommandTest, RefusesWrongWords) {
    for (const auto& [arguments, message] :
         std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"watch", "polcy"}, "did you mean 'policy'?"},
             {{"watch", "--count", "0"}, "from 1 to"},
             {{"state", "--count", "1"}, "--watch"},
             {{"state", "--watch", "--wait", "stopped"}, "--wait"}}) {
        SCOPED_TRACE(message);
        const Ran ran = Run(arguments);
        ExpectFailure(ran, 1);
        EXPECT_THAT(ran.err, HasSubstr(message));
    }
    EXPECT_EQ(provider_.opens, 0);
}

TEST(NoticeQueue, LetsObserversWaitForRoomAndGoWhenItIsClosed) {
    FakeClock clock;
    NoticeQueue queue(clock);
    for (std::size_t number = 0; number < NoticeQueue::kCapacity; ++number) {
        queue.Push(Describe(NoticeKind::SettingsSynced, number));
    }
    std::thread observer([&queue] {
        queue.Push(Describe(NoticeKind::SettingsSynced, NoticeQueue::kCapacity));
        queue.Push(Describe(NoticeKind::SettingsSynced, 0));
    });
    for (std::size_t number = 0; number < NoticeQueue::kCapacity; ++number) {
        ASSERT_EQ(queue.Pop().value().hash, number);
    }
    queue.Close();
    observer.join();
    queue.Push(Describe(NoticeKind::SettingsSynced, 0));
    std::size_t left = 0;
    while (queue.Pop()) {
        ++left;
    }
    EXPECT_LE(left, 2U);
}

}  // namespace
}  // namespace zamctl::test
