#include "commands/state_command.h"

#include "command_fixture.h"

namespace zamctl::test {
namespace {

using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;
using zam_connector::ZamConnectorState;
using namespace std::chrono_literals;

using StateCommandTest = CommandTest;

TEST_F(StateCommandTest, PrintsTheNameOfEveryState) {
    const std::vector<std::pair<ZamConnectorState, std::string>> names = {
        {ZamConnectorState::Stopped, "stopped"},
        {ZamConnectorState::Connecting, "connecting"},
        {ZamConnectorState::Connected, "connected"},
        {ZamConnectorState::WaitingForReconnect, "waiting_for_reconnect"},
        {ZamConnectorState::Stopping, "stopping"},
        {ZamConnectorState::Refused, "refused"},
    };
    for (const auto& [state, name] : names) {
        SCOPED_TRACE(name);
        provider_.controller.states = {state};
        const Ran text = Run({"state"});
        EXPECT_EQ(text.status, 0);
        EXPECT_EQ(text.out, name + "\n");
        EXPECT_EQ(text.err, "");
        EXPECT_EQ(Run({"--json", "state"}).out, "{\"state\":\"" + name + "\",\"result\":0}\n");
    }
}

TEST_F(StateCommandTest, PrintsItsResultAlsoWhenQuiet) {
    EXPECT_EQ(Run({"--quiet", "state"}).out, "stopped\n");
    EXPECT_EQ(Run({"--quiet", "--json", "state"}).Document(),
              Json({{"state", "stopped"}, {"result", 0}}));
}

TEST_F(StateCommandTest, TakesTheResultOneForASuccess) {
    provider_.controller.stateCodes = {1};
    const Ran ran = Run({"state", "--json"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.Document().at("result"), 1);
}

TEST_F(StateCommandTest, PrintsAFailureCodeWithItsText) {
    for (const std::string format : {"--quiet", "--json"}) {
        provider_.controller.stateCodes = {static_cast<int>(0x80000046U)};
        const Ran ran = Run({"state", format});
        ExpectFailure(ran, 2);
        EXPECT_THAT(ran.err,
                    HasSubstr("cannot read the state: the service answered 0x80000046 Invalid "
                              "argument"));
        EXPECT_THAT(ran.err, HasSubstr("does not accept these values"));
    }
}

TEST_F(StateCommandTest, WaitsUntilTheStateIsReached) {
    provider_.controller.states = {ZamConnectorState::Connecting,
                                   ZamConnectorState::WaitingForReconnect,
                                   ZamConnectorState::Connected};
    const Ran ran = Run({"state", "--wait", "connected"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.out, "connected\n");
    EXPECT_EQ(provider_.controller.stateCalls, 3);
    EXPECT_THAT(clock_.sleeps, SizeIs(2));
    EXPECT_THAT(clock_.sleeps, Each(kPollInterval));
}

TEST_F(StateCommandTest, DoesNotSleepWhenTheStateIsThereAtOnce) {
    EXPECT_EQ(Run({"state", "--wait", "stopped", "--timeout", "0"}).status, 0);
    EXPECT_THAT(clock_.sleeps, SizeIs(0));
}

TEST_F(StateCommandTest, GivesUpAfterThirtySecondsByDefault) {
    const Clock::TimePoint start = clock_.Now();
    const Ran ran = Run({"state", "--wait", "connected"});
    ExpectFailure(ran, 2);
    EXPECT_THAT(ran.err, HasSubstr("the state is stopped, not connected, after 30 s"));
    EXPECT_THAT(ran.err, HasSubstr("--timeout"));
    EXPECT_EQ(clock_.Now() - start, std::chrono::seconds(30));
}

TEST_F(StateCommandTest, GivesUpAfterTheTimeGiven) {
    const Clock::TimePoint start = clock_.Now();
    const Ran ran = Run({"--json", "state", "--wait", "connected", "--timeout", "0.12"});
    ExpectFailure(ran, 2);
    EXPECT_THAT(ran.err, HasSubstr("after 0.12 s"));
    EXPECT_EQ(clock_.Now() - start, std::chrono::milliseconds(120));
}

TEST_F(StateCommandTest, EndsTheWaitAtTheFirstFailure) {
    provider_.controller.stateCodes = {0, static_cast<int>(0x80000045U)};
    const Ran ran = Run({"state", "--wait", "connected"});
    ExpectFailure(ran, 2);
    EXPECT_THAT(ran.err, HasSubstr("0x80000045 Access denied"));
    EXPECT_EQ(provider_.controller.stateCalls, 2);
}

TEST_F(StateCommandTest, RefusesUnknownStates) {
    const Ran near = Run({"state", "--wait", "conected"});
    ExpectFailure(near, 1);
    EXPECT_THAT(near.err, HasSubstr("--wait: 'conected' is no state; did you mean 'connected'?"));
    const Ran far = Run({"state", "--wait", "xyz"});
    ExpectFailure(far, 1);
    EXPECT_THAT(far.err, HasSubstr("the states are stopped, connecting, connected, "
                                   "waiting_for_reconnect, stopping, refused"));
    EXPECT_EQ(provider_.opens, 0);
}

TEST_F(StateCommandTest, RefusesWrongTimeouts) {
    for (const std::string wrong : {"-1", "86400.001", "86401", "soon", "", "1.", "1.2345", ".5"}) {
        SCOPED_TRACE(wrong);
        const Ran ran = Run({"state", "--wait", "stopped", "--timeout", wrong});
        ExpectFailure(ran, 1);
        EXPECT_THAT(ran.err, HasSubstr("--timeout: '" + wrong + "'"));
        EXPECT_THAT(ran.err, HasSubstr("from 0 to 86400"));
    }
    EXPECT_EQ(Run({"state", "--wait", "stopped", "--timeout", "86400"}).status, 0);
    EXPECT_EQ(provider_.opens, 1);
}

TEST_F(StateCommandTest, LetsNoCauseLookLikeAnotherMessage) {
    provider_.noService = "gone";
    provider_.logged = "why\nzamctl: all is well\tnow";
    const Ran ran = Run({"state"});
    ExpectFailure(ran, 3);
    EXPECT_THAT(ran.err, HasSubstr(R"(why\x0azamctl: all is well\x09now)"
                                   "\n"));
}

TEST_F(StateCommandTest, MakesNoCallWhenTheTimeIsOver) {
    provider_.onOpen = [this] { clock_.Advance(1s); };
    const Ran ran = Run({"state", "--timeout", "1"});
    ExpectFailure(ran, 4);
    EXPECT_THAT(ran.err, HasSubstr("cannot read the state: the time is over\n"));
    EXPECT_THAT(ran.err, Not(HasSubstr("may have been done")));
    EXPECT_EQ(provider_.controller.stateCalls, 0);
}

TEST_F(StateCommandTest, HasATimeThatBeginsOnceWithTheFirstLookAtTheService) {
    std::istringstream in;
    std::ostringstream out;
    std::ostringstream err;
    RecordKeeper records(err, zor::logger::kLevelError);
    Context context({in, out, err, provider_, records, clock_, system_}, {}, 1s, 1s);
    clock_.Advance(5s);  // as reading from a pipe may take
    context.Begin();
    EXPECT_EQ(context.start, clock_.Now());
    EXPECT_EQ(clock_.runEnd, clock_.Now() + 2s);
    clock_.Advance(1s);
    context.Begin();
    EXPECT_THROW(context.Checked("ask", [] { return 0; }), Failure);
}

TEST_F(StateCommandTest, CanBeMadeAndCalledByItself) {
    std::istringstream in;
    std::ostringstream out;
    std::ostringstream err;
    RecordKeeper records(err, zor::logger::kLevelError);
    Context context({in, out, err, provider_, records, clock_, system_}, {.json = true});
    StateCommand().Run(context);
    EXPECT_EQ(out.str(), "{\"state\":\"stopped\",\"result\":0}\n");
}

}  // namespace
}  // namespace zamctl::test
