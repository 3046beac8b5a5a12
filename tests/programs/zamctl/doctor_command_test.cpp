#include <algorithm>

#include "command_fixture.h"
#include "version.h"

namespace zamctl::test {
namespace {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;
using namespace std::chrono_literals;

class DoctorCommandTest : public CommandTest {
protected:
    DoctorCommandTest() {
        provider_.controller.durations = {50us, 10us, 30us, 20us, 40us};
        provider_.controller.states = {zam_connector::ZamConnectorState::Connected};
    }

    /// The checks of that name in a run's document.
    static std::vector<Json> Checks(const Ran& ran, const std::string& name) {
        std::vector<Json> found;
        const Json document = ran.Document();
        std::copy_if(document.at("checks").begin(), document.at("checks").end(),
                     std::back_inserter(found),
                     [&name](const Json& check) { return check.at("check") == name; });
        return found;
    }
};

TEST_F(DoctorCommandTest, FindsNothingWrongWithASoundSystem) {
    const Ran ran = Run({"doctor"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.err, "");
    const std::string version = kVersion;
    EXPECT_EQ(ran.out,
              "ok       zamctl        version " + version +
                  "\n"
                  "ok       library       version " +
                  version +
                  ", part of zamctl\n"
                  "ok       log_level     4, as ZAM_LOG_LEVEL is not set\n"
                  "ok       runtime_dir   /run/fake, from ZAM_RUNTIME_DIR\n"
                  "ok       directory     exists, owner user 1000, mode 0700\n"
                  "ok       socket        /run/fake/fake_service.sock exists\n"
                  "ok       service       'fake_service' connected\n"
                  "ok       endpoint      fake.controller, riid 1\n"
                  "ok       endpoint      fake.settings, riid 2\n"
                  "ok       round_trip    30.0 us, median of 5 calls; state connected\n"
                  "ok       fast_channel  offered, 0 of 500 calls (0 %) through memory: it "
                  "is for calls within some 50 us of one another, from another CPU than "
                  "the service's\n");
}

TEST_F(DoctorCommandTest, PrintsOneDocument) {
    const Ran ran = Run({"--json", "doctor"});
    EXPECT_EQ(ran.status, 0);
    const Json document = ran.Document();
    EXPECT_EQ(document.at("status"), "ok");
    EXPECT_EQ(document.at("checks").size(), 11U);
    const std::vector<Json> endpoints = Checks(ran, "endpoint");
    ASSERT_EQ(endpoints.size(), 2U);
    EXPECT_EQ(endpoints[1], Json({{"check", "endpoint"},
                                  {"status", "ok"},
                                  {"text", "fake.settings, riid 2"},
                                  {"name", "fake.settings"},
                                  {"riid", 2}}));
    EXPECT_EQ(Checks(ran, "round_trip").front().at("median_us"), 30.0);
    EXPECT_EQ(Checks(ran, "directory").front().at("mode"), "0700");
    EXPECT_EQ(Checks(ran, "runtime_dir").front().at("path"), "/run/fake");
    EXPECT_EQ(Checks(ran, "log_level").front().at("level"), 4);
}

TEST_F(DoctorCommandTest, PrintsWhenQuietOnlyWhatIsNotOk) {
    EXPECT_EQ(Run({"--quiet", "doctor"}).out, "");
    EXPECT_EQ(Run({"--quiet", "--json", "doctor"}).Document().at("checks").size(), 11U);
    system_.variables["ZAM_LOG_LEVEL"] = "loud";
    EXPECT_THAT(Run({"--quiet", "doctor"}).out,
                AllOf(HasSubstr("warning  log_level"), Not(HasSubstr("ok "))));
}

TEST_F(DoctorCommandTest, ShowsTheLogLevel) {
    system_.variables["ZAM_LOG_LEVEL"] = "0";
    EXPECT_THAT(Run({"doctor"}).out, HasSubstr("ok       log_level     0, from ZAM_LOG_LEVEL\n"));
    for (const std::string wrong : {"loud", "", "3x"}) {
        system_.variables["ZAM_LOG_LEVEL"] = wrong;
        const Ran ran = Run({"doctor"});
        EXPECT_EQ(ran.status, 0);
        EXPECT_THAT(ran.out, HasSubstr("warning  log_level     4, as ZAM_LOG_LEVEL is '" + wrong +
                                       "', which is no number\n"));
        EXPECT_THAT(ran.out, HasSubstr("Set ZAM_LOG_LEVEL to a number from 0"));
    }
    EXPECT_EQ(Run({"--json", "doctor"}).Document().at("status"), "warning");
}

TEST_F(DoctorCommandTest, ComparesTheVersionsOfTheLibraries) {
    const std::string same = "/lib/libzam_platform.so." + std::string(kVersion);
    system_.libraries = {{same}};
    EXPECT_THAT(Run({"doctor"}).out, HasSubstr("ok       library       version " +
                                               std::string(kVersion) + ", " + same + "\n"));
    system_.libraries = {{same}, {"/lib/libzam_connector_common.so.99.0"}};
    const Ran ran = Run({"doctor"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_THAT(ran.out, AllOf(HasSubstr("warning  library       version 99.0, "
                                         "/lib/libzam_connector_common.so.99.0\n"),
                               HasSubstr("Install zamctl and the libraries of one version.")));
    system_.libraries = {{"/lib/libzam_platform.so"}};
    EXPECT_THAT(Run({"doctor"}).out, HasSubstr("warning  library       version unknown"));
}

TEST_F(DoctorCommandTest, ReportsAndEndsWithStatusThreeWithoutAService) {
    system_.LoseDirectory();
    provider_.noService = "no socket";
    const Ran ran = Run({"doctor"});
    EXPECT_EQ(ran.status, 3);
    EXPECT_THAT(ran.out,
                AllOf(HasSubstr("problem  directory     /run/fake: No such file or directory\n"
                                "                       Start zam_connectord for the directory "
                                "'/run/fake', or set ZAM_RUNTIME_DIR"),
                      HasSubstr("problem  service       cannot reach the service "
                                "'fake_service': no socket\n")));
    EXPECT_THAT(ran.out, Not(HasSubstr("round_trip")));
    EXPECT_EQ(ran.err,
              "zamctl doctor: the connector cannot be made\n"
              "The lines of the report that begin with 'problem' say what to do.\n");
    EXPECT_EQ(Run({"--json", "doctor"}).Document().at("status"), "problem");
    EXPECT_EQ(Run({"--json", "doctor"}).status, 3);
}

TEST_F(DoctorCommandTest, AdvisesToStartAServiceWhoseSocketIsLeftOver) {
    provider_.noService = "Connection refused";
    const Ran ran = Run({"doctor"});
    EXPECT_EQ(ran.status, 3);
    EXPECT_THAT(ran.out, HasSubstr("ok       socket"));
    EXPECT_THAT(ran.out, HasSubstr("Connection refused\n"
                                   "                       Start zam_connectord"));
}

TEST_F(DoctorCommandTest, LetsNoTextOfOthersLookLikeACheck) {
    provider_.noService = "gone";
    provider_.logged.clear();
    system_.runtimeDirectory.directory.path = "/run/a\nok       directory";
    const Ran ran = Run({"doctor"});
    EXPECT_EQ(ran.status, 3);
    EXPECT_THAT(ran.out, HasSubstr(R"(ok       runtime_dir   /run/a\x0aok       directory, from)"));
}

TEST_F(DoctorCommandTest, NamesAMissingEndpoint) {
    provider_.missingEndpoint = "fake.commands";
    const Ran ran = Run({"--json", "doctor"});
    EXPECT_EQ(ran.status, 3);
    const std::vector<Json> endpoints = Checks(ran, "endpoint");
    ASSERT_EQ(endpoints.size(), 3U);
    EXPECT_EQ(endpoints[2].at("status"), "problem");
    EXPECT_EQ(endpoints[2].at("text"), "fake.commands is not known to the service");
    EXPECT_THAT(endpoints[2].at("remedy").get<std::string>(), HasSubstr("Restart zam_connectord"));
    EXPECT_EQ(Checks(ran, "service").front().at("status"), "ok");
    EXPECT_EQ(Checks(ran, "connector").front().at("status"), "problem");
}

TEST_F(DoctorCommandTest, ChecksTheServiceOfFilesToo) {
    provider_.services = {"fake_service", "fake_files"};
    system_.runtimeDirectory.sockets.push_back(
        {"/run/fake/fake_files.sock", vd::FileFault::None, {}, system_.user, 0600});
    EXPECT_THAT(Run({"doctor"}).out, AllOf(HasSubstr("'fake_files' connected\n"),
                                           HasSubstr("endpoint      fake.files, riid 9\n")));
    provider_.goneService = "fake_files";
    provider_.noService = "no answer";
    const Ran ran = Run({"doctor"});
    EXPECT_EQ(ran.status, 3);
    EXPECT_THAT(ran.out, AllOf(HasSubstr("'fake_service' connected\n"),
                               HasSubstr("problem  service       cannot reach the service "
                                         "'fake_files': no answer\n"),
                               Not(HasSubstr("round_trip"))));
}

TEST_F(DoctorCommandTest, EndsWithStatusTwoWhenACallFails) {
    provider_.controller.stateCodes = {0, static_cast<int>(0x80000063U)};
    const Ran ran = Run({"doctor"});
    EXPECT_EQ(ran.status, 2);
    EXPECT_THAT(ran.out, HasSubstr("problem  round_trip    cannot read the state: the service "
                                   "answered 0x80000063 Not ready\n"));
    EXPECT_THAT(ran.err, HasSubstr("0x80000063 Not ready"));
}

TEST_F(DoctorCommandTest, MakesManyCallsToSeeWhetherTheyGoThroughMemory) {
    provider_.fastChannel.isTaken = true;
    provider_.socketCalls = 55;
    const Ran ran = Run({"--json", "doctor"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(provider_.controller.stateCalls, 505);
    const Json found = Checks(ran, "fast_channel").front();
    EXPECT_EQ(found.at("text"), "taken, 450 of 500 calls (90 %) through memory");
    EXPECT_EQ(found.at("status"), "ok");
    EXPECT_EQ(found.at("calls"), 500);
    EXPECT_EQ(found.at("memory_calls"), 450);
    EXPECT_EQ(found.at("memory_share"), 0.9);
    EXPECT_EQ(found.at("taken"), true);
}

TEST_F(DoctorCommandTest, TakesNoTimeForCallsThatAreSlow) {
    provider_.controller.durations.insert(provider_.controller.durations.end(), 600, 20ms);
    EXPECT_EQ(Run({"doctor"}).status, 0);
    EXPECT_EQ(provider_.controller.stateCalls, 8);
    provider_.controller.stateCalls = 0;
    EXPECT_EQ(Run({"--timeout", "0.15", "doctor"}).status, 0) << "half of what is left";
    EXPECT_EQ(provider_.controller.stateCalls, 7);
}

TEST_F(DoctorCommandTest, MakesNoCallsForAFastChannelThatIsOff) {
    for (const FastChannelUse& off :
         std::vector<FastChannelUse>{{},
                                     {.isBuilt = true, .isOffered = true},
                                     {.isBuilt = true, .isOn = true, .isOffered = false}}) {
        provider_.fastChannel = off;
        provider_.controller.stateCalls = 0;
        const Ran ran = Run({"--json", "doctor"});
        EXPECT_EQ(ran.status, 0);
        EXPECT_EQ(provider_.controller.stateCalls, 5);
        EXPECT_EQ(Checks(ran, "fast_channel").front().at("status"), "ok");
        EXPECT_TRUE(Checks(ran, "fast_channel").front().contains("off_by"));
    }
}

TEST_F(DoctorCommandTest, EndsWithStatusTwoWhenOneOfTheManyCallsFails) {
    provider_.controller.stateCodes = std::deque<int>(20);
    provider_.controller.stateCodes.push_back(static_cast<int>(0x80000063U));
    const Ran ran = Run({"doctor"});
    EXPECT_EQ(ran.status, 2);
    EXPECT_THAT(ran.out, AllOf(HasSubstr("ok       round_trip"),
                               HasSubstr("problem  fast_channel  cannot read the state: the "
                                         "service answered 0x80000063 Not ready\n")));
}

TEST_F(DoctorCommandTest, DoesNotPassOverAProblemOfTheDirectory) {
    system_.runtimeDirectory.directory.fault = vd::FileFault::OthersWrite;
    system_.runtimeDirectory.directory.mode = 0777;
    const Ran ran = Run({"doctor"});
    EXPECT_EQ(ran.status, 3);
    EXPECT_THAT(ran.out, HasSubstr("Run 'chmod go-w /run/fake'."));
}

}  // namespace
}  // namespace zamctl::test
