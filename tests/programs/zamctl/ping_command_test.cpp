#include "command_fixture.h"
#include "round_trip.h"

namespace zamctl::test {
namespace {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;
using ::testing::Not;
using ::testing::SizeIs;
using namespace std::chrono_literals;

class PingCommandTest : public CommandTest {
protected:
    PingCommandTest() { provider_.controller.durations = {30us, 10us, 20500ns}; }
};

TEST_F(PingCommandTest, PrintsEveryCallAndASummary) {
    const Ran ran = Run({"ping", "--count", "3"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(
        ran.out,
        "call 1: 30.0 us, stopped\n"
        "call 2: 10.0 us, stopped\n"
        "call 3: 20.5 us, stopped\n"
        "3 calls: min 10.0 us, p50 20.5 us, p99 30.0 us, max 30.0 us\n"
        "fast channel: offered, 0 of 3 calls (0 %) through memory: calls 100 ms apart are for "
        "the socket\n");
    EXPECT_EQ(ran.err, "");
}

TEST_F(PingCommandTest, PrintsADocumentInEachLine) {
    const Ran ran = Run({"ping", "--json", "--count", "2"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_THAT(ran.Documents(), SizeIs(3));
    EXPECT_EQ(ran.out, R"({"call":1,"round_trip_us":30.0,"state":"stopped","result":0})"
                       "\n"
                       R"({"call":2,"round_trip_us":10.0,"state":"stopped","result":0})"
                       "\n"
                       R"({"summary":{"calls":2,"interrupted":false,"min_us":10.0,"p50_us":10.0,)"
                       R"("p99_us":30.0,"max_us":30.0,"fast_channel":{"offered":true,)"
                       R"("taken":false,"calls":2,"memory_calls":0,"memory_share":0.0,)"
                       R"("vain_polls":0,"vain_us":0.0}}})"
                       "\n");
}

TEST_F(PingCommandTest, PrintsOnlyTheSummaryWhenQuiet) {
    EXPECT_THAT(Run({"--quiet", "ping", "--count", "1"}).out,
                MatchesRegex("1 call: min 30.0 us, p50 30.0 us, p99 30.0 us, max 30.0 us\n"
                             "fast channel: .*\n"));
    const Json summary = Run({"--quiet", "--json", "ping", "--count", "1"}).Document();
    EXPECT_EQ(summary.at("summary").at("calls"), 1);
}

TEST_F(PingCommandTest, CountsWhatWentThroughMemoryOfItsOwnCallsAlone) {
    provider_.controller.stateCalls = 50;  // for whatever reason
    provider_.socketCalls = 51;
    provider_.fastChannel.isTaken = true;
    provider_.fastChannel.vainPolls = 2;
    provider_.fastChannel.vainTime = 61250ns;
    EXPECT_THAT(Run({"--quiet", "ping", "--count", "3", "--interval", "0"}).out,
                HasSubstr("fast channel: taken, 2 of 3 calls (67 %) through memory, 2 looks in "
                          "vain took 61.3 us\n"));
    EXPECT_EQ(
        Run({"--json", "--quiet", "ping", "--count", "4"}).Document()["summary"]["fast_channel"],
        Json({{"offered", true},
              {"taken", true},
              {"calls", 4},
              {"memory_calls", 4},
              {"memory_share", 1.0},
              {"vain_polls", 0},
              {"vain_us", 0.0}}));
}

TEST_F(PingCommandTest, SaysWhatTheFastChannelNeedsWhenCallsWithoutPausesDoNotUseIt) {
    EXPECT_THAT(Run({"--quiet", "ping", "--count", "2", "--interval", "0"}).out,
                HasSubstr("offered, 0 of 2 calls (0 %) through memory: it is for calls within some "
                          "50 us of one another, from another CPU than the service's\n"));
}

TEST_F(PingCommandTest, SaysWhoHasTurnedTheFastChannelOff) {
    struct Case {
        FastChannelUse use;
        std::string spin;
        std::string offBy;
        std::string text;
    };
    for (const Case& off :
         std::vector<Case>{{{}, "0", "build", "none: the library has been built without it"},
                           {{.isBuilt = true}, "0", "ZAM_SPIN", "off in zamctl: ZAM_SPIN is 0"},
                           {{.isBuilt = true, .isOffered = true},
                            "50",
                            "cpus",
                            "off in zamctl: it has fewer than two CPUs to run on"},
                           {{.isBuilt = true, .isOffered = true},
                            "none",
                            "cpus",
                            "off in zamctl: it has fewer than two CPUs to run on"},
                           {{.isBuilt = true, .isOn = true, .isOffered = false},
                            "50",
                            "service",
                            "not offered by the service: it is turned off there, or not known"}}) {
        SCOPED_TRACE(off.text);
        provider_.fastChannel = off.use;
        system_.variables["ZAM_SPIN"] = off.spin;
        EXPECT_THAT(Run({"--quiet", "ping", "--count", "1"}).out,
                    HasSubstr("fast channel: " + off.text + "\n"));
        const Json channel = Run({"--json", "--quiet", "ping", "--count", "1"})
                                 .Document()["summary"]["fast_channel"];
        EXPECT_EQ(channel.at("off_by"), off.offBy);
        EXPECT_EQ(channel.at("calls"), 1);
        EXPECT_EQ(channel.at("offered"), off.use.isOffered ? Json(*off.use.isOffered) : Json());
    }
}

TEST_F(PingCommandTest, MakesTenCallsATenthOfASecondApartByDefault) {
    EXPECT_EQ(Run({"--quiet", "ping"}).status, 0);
    EXPECT_EQ(provider_.controller.stateCalls, 10);
    EXPECT_THAT(clock_.sleeps, AllOf(SizeIs(9), Each(100ms)));
}

TEST_F(PingCommandTest, PausesAsToldBetweenCallsAndNotBehindTheLast) {
    EXPECT_EQ(Run({"ping", "--count", "2", "--interval", "7"}).status, 0);
    EXPECT_THAT(clock_.sleeps, AllOf(SizeIs(1), Each(7ms)));
}

TEST_F(PingCommandTest, EndsWithTheSummaryWhenInterrupted) {
    clock_.interruptAtSleep = 2;
    const Ran ran = Run({"ping", "--count", "100"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_TRUE(clock_.catching);
    EXPECT_THAT(ran.out, HasSubstr("2 calls: min 10.0 us"));
    clock_.interrupted = false;
    clock_.sleeps.clear();
    const Ran json = Run({"--json", "--quiet", "ping", "--count", "100"});
    EXPECT_EQ(json.Document().at("summary").at("interrupted"), true);
}

TEST_F(PingCommandTest, SummarisesNoCallsWhenInterruptedBeforeTheFirst) {
    clock_.interrupted = true;
    EXPECT_EQ(Run({"ping"}).out, "0 calls\n");
    EXPECT_EQ(Run({"--json", "ping"}).out, "{\"summary\":{\"calls\":0,\"interrupted\":true}}\n");
    EXPECT_EQ(provider_.controller.stateCalls, 0);
}

TEST_F(PingCommandTest, PrintsAFailureCodeWithItsText) {
    provider_.controller.stateCodes = {static_cast<int>(0x8000004BU)};
    const Ran ran = Run({"ping", "--json"});
    ExpectFailure(ran, 2);
    EXPECT_THAT(ran.err, HasSubstr("cannot read the state: the service answered 0x8000004B"));
}

TEST_F(PingCommandTest, EndsWithoutASummaryAtTheFirstFailure) {
    provider_.controller.stateCodes = {0, static_cast<int>(0x80000045U)};
    const Ran ran = Run({"ping"});
    EXPECT_EQ(ran.status, 2);
    EXPECT_EQ(ran.out, "call 1: 30.0 us, stopped\n");
    EXPECT_THAT(ran.err, HasSubstr("0x80000045 Access denied"));
}

TEST_F(PingCommandTest, PausesNoLongerThanTheCommandMayTake) {
    const Ran ran = Run({"ping", "--timeout", "1", "--count", "3", "--interval", "3600000"});
    EXPECT_EQ(ran.status, 2);
    EXPECT_EQ(ran.out, "call 1: 30.0 us, stopped\n");
    EXPECT_THAT(ran.err, AllOf(HasSubstr("zamctl ping: made 1 of 3 calls within 1.000 s\n"),
                               HasSubstr("--interval"), Not(HasSubstr("done"))));
    EXPECT_EQ(provider_.controller.stateCalls, 1);
    EXPECT_EQ(clock_.Now(), Clock::TimePoint(1s));
}

TEST_F(PingCommandTest, RefusesWrongValues) {
    for (const auto& [option, value, range] :
         std::vector<std::tuple<std::string, std::string, std::string>>{
             {"--count", "0", "from 1 to 1000000"},
             {"--count", "1000001", "from 1 to 1000000"},
             {"--count", "-1", "from 1 to 1000000"},
             {"--count", "many", "from 1 to 1000000"},
             {"--interval", "-1", "from 0 to 3600000"},
             {"--interval", "3600001", "from 0 to 3600000"},
             {"--interval", "0.5", "from 0 to 3600000"}}) {
        SCOPED_TRACE(option + ' ' + value);
        const Ran ran = Run({"ping", option, value});
        ExpectFailure(ran, 1);
        EXPECT_THAT(ran.err,
                    HasSubstr(option + ": '" + value + "' is not a whole number " + range));
    }
    EXPECT_EQ(provider_.opens, 0);
}

TEST(Percentiles, AreTheNearestRanks) {
    std::vector<std::chrono::nanoseconds> sorted;
    for (int value = 1; value <= 200; ++value) {
        sorted.emplace_back(value);
    }
    EXPECT_EQ(Percentile(sorted, 50).count(), 100);
    EXPECT_EQ(Percentile(sorted, 99).count(), 198);
    EXPECT_EQ(Percentile(sorted, 100).count(), 200);
    EXPECT_EQ(Percentile(sorted, 0).count(), 1);
    EXPECT_EQ(Percentile(std::span(sorted).first(1), 99).count(), 1);
    EXPECT_EQ(Percentile(std::span(sorted).first(3), 50).count(), 2);
}

}  // namespace
}  // namespace zamctl::test
