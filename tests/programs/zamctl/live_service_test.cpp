// The commands that watch and fetch, as processes over the real service in another.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "support/program.h"
#include "support/running_program.h"
#include "support/scoped_environment.h"
#include "support/temporary_folder.h"
#include "zam_connector_testing/service_process.h"

namespace zamctl::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using ::testing::AnyOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using zam_connector::test::ProgramResult;
using zam_connector::test::RunProgram;
using zam_test::Content;

class ZamctlLive : public ::testing::Test {
protected:
    explicit ZamctlLive(const std::string& service = ZAM_CONNECTORD) : service_(service) {}

    std::vector<std::string> Environment() const {
        return {"ZAM_RUNTIME_DIR=" + service_.RuntimeDirectory(), "TZ=UTC"};
    }

    ProgramResult Run(const std::vector<std::string>& arguments) const {
        return RunProgram(ZAMCTL_EXECUTABLE, arguments, {.environment = Environment()});
    }

    /// Writes a file for download, of bytes that do not repeat soon.
    std::string WriteFile(const std::string& name, std::size_t size) const {
        std::string content(size, '\0');
        std::uint32_t state = 1;
        for (char& byte : content) {
            state = state * 1664525 + 1013904223;
            byte = static_cast<char>(state >> 24U);
        }
        fs::create_directories(fs::path(service_.DataDirectory()) / "files");
        service_.WriteData("files/" + name, content);
        return content;
    }

    std::string Target() const { return service_.DataDirectory() + "/fetched"; }

    zam_connector::testing::ServiceProcess service_;
};

/// A watch that has subscribed.
class Watch : public RunningProgram {
public:
    Watch(const std::vector<std::string>& arguments, const std::vector<std::string>& environment)
        : RunningProgram(ZAMCTL_EXECUTABLE, arguments, environment) {
        EXPECT_THAT(ErrLine(), StartsWith("watching "));
    }

    json Notice() { return json::parse(OutLine(), nullptr, false); }
};

TEST_F(ZamctlLive, WatchPrintsChangesUntilItIsInterrupted) {
    service_.Start();
    for (const int signal : {SIGINT, SIGTERM}) {
        Watch watch({"--json", "watch"}, Environment());
        service_.WriteData("policy.json", R"({"a": )" + std::to_string(signal) + "}");
        const json policy = watch.Notice();
        EXPECT_EQ(policy.at("kind"), "policy");
        EXPECT_EQ(policy.at("nodes"), 2);
        EXPECT_EQ(policy.at("hash").get<std::string>() + "\n", Run({"policy", "hash"}).out);
        EXPECT_TRUE(policy.at("since_previous_ms").is_null());
        service_.WriteData("server_data.json", R"({"version_major": )" + std::to_string(signal) +
                                                   R"(, "version_minor": 0, "clock_offset_s": 0,
                   "device_status": "managed", "offers_files": true,
                   "wants_diagnostics": false, "requires_client_cert": false})");
        EXPECT_EQ(watch.Notice().at("version_major"), signal);
        watch.Signal(signal);
        EXPECT_THAT(watch.ErrLine(), StartsWith("2 notices in "));
        EXPECT_EQ(watch.Wait(), 0);
    }
}

TEST_F(ZamctlLive, WatchTellsKindsThatDoNotKeepTheNotificationsRunning) {
    service_.Start();
    Watch watch({"--json", "watch", "reserve-cert", "--count", "2"}, Environment());
    service_.WriteData("policy.json", R"({"not": "watched"})");
    service_.WriteData("reserve_cert.pem", "one");
    EXPECT_EQ(watch.Notice().at("bytes"), 3);
    service_.WriteData("reserve_cert.pem", "four");
    EXPECT_EQ(watch.Notice().at("bytes"), 4);
    EXPECT_EQ(watch.Wait(), 0);
}

TEST_F(ZamctlLive, WatchGoesOnWhenTheServiceComesBack) {
    service_.Start();
    Watch watch({"--json", "watch", "policy"}, Environment());
    service_.WriteData("policy.json", R"({"a": 1})");
    const json before = watch.Notice();
    service_.Kill();
    service_.Start();
    const json again = watch.Notice();
    EXPECT_EQ(again.at("hash"), before.at("hash"));
    service_.WriteData("policy.json", R"({"a": 2})");
    EXPECT_NE(watch.Notice().at("hash"), before.at("hash"));
    watch.Signal(SIGTERM);
    EXPECT_EQ(watch.Wait(), 0);
}

TEST_F(ZamctlLive, WatchEndsWhenNobodyReadsAnyMore) {
    service_.Start();
    Watch watch({"watch"}, Environment());
    watch.StopReading();
    EXPECT_THAT(watch.ErrLine(), StartsWith("0 notices in "));
    EXPECT_EQ(watch.Wait(), 0);
}

TEST_F(ZamctlLive, StateWatchPrintsEachState) {
    service_.WriteData("connection.json",
                       R"({"start": [{"state": "connecting"}, {"state": "connected"}]})");
    service_.Start();
    Watch watch({"--json", "state", "--watch", "--count", "2"}, Environment());
    EXPECT_EQ(Run({"start", "--server", "server.example", "--port", "1"}).status, 0);
    EXPECT_EQ(watch.Notice().at("state"), "connecting");
    EXPECT_EQ(watch.Notice().at("state"), "connected");
    EXPECT_EQ(watch.Wait(), 0);
}

TEST_F(ZamctlLive, FetchesAFile) {
    const std::string content = WriteFile("a.bin", 300'001);
    service_.Start();
    const ProgramResult get = Run({"--json", "file", "get", "a.bin", "-o", Target()});
    EXPECT_EQ(get.status, 0) << get.err;
    EXPECT_EQ(Content(Target()), content);
    const json info = json::parse(Run({"--json", "file", "info", "a.bin"}).out);
    EXPECT_EQ(info.at("size_bytes"), content.size());
    EXPECT_EQ(info.at("sha256"), json::parse(get.out).at("sha256"));
    const ProgramResult missing = Run({"file", "get", "b.bin", "-o", Target()});
    EXPECT_EQ(missing.status, 2);
    EXPECT_THAT(missing.err, HasSubstr("zamctl file get: cannot describe \"b.bin\": the service "
                                       "answered 0x"));
}

TEST_F(ZamctlLive, FetchesAFileThroughDroppedConnectionsAndDamage) {
    const std::string content = WriteFile("a.bin", 1'000'000);
    service_.WriteData("faults.json", R"({"rules": [
        {"endpoint": "fileDownloader", "operation": "GetFileChunk", "calls": 3, "drop": true},
        {"endpoint": "fileDownloader", "operation": "GetFileChunk", "calls": [6, 7],
         "transport_status": 5},
        {"endpoint": "fileDownloader", "operation": "GetFileChunk", "calls": 10,
         "damage": "chunk_data"},
        {"endpoint": "fileDownloader", "operation": "GetFileChunk", "calls": 12,
         "damage": "chunk_version"}]})");
    service_.Start();
    const ProgramResult get = Run({"--json", "file", "get", "a.bin", "-o", Target()});
    EXPECT_EQ(get.status, 0) << get.err;
    EXPECT_EQ(Content(Target()), content);
    const json report = json::parse(get.out);
    EXPECT_EQ(report.at("interruptions"), 2);
    EXPECT_EQ(report.at("damaged_chunks"), 1);
    EXPECT_EQ(report.at("restarts"), 0);
    EXPECT_EQ(report.at("fetched_bytes"), content.size() + 65536);
}

TEST_F(ZamctlLive, FetchesAFileThroughARestartOfTheService) {
    const std::string content = WriteFile("a.bin", 2'000'000);
    service_.WriteData("faults.json", R"({"rules": [
        {"endpoint": "fileDownloader", "operation": "GetFileChunk", "calls": [9, 1000],
         "transport_status": 5}]})");
    service_.Start();
    RunningProgram get(ZAMCTL_EXECUTABLE, {"--json", "file", "get", "a.bin", "-o", Target()},
                       Environment());
    std::string line = get.ErrLine();
    while (line.find("interrupted") == std::string::npos && line != "(nothing)") {
        line = get.ErrLine();
    }
    service_.Kill();
    service_.WriteData("faults.json", "{}");
    service_.Start();
    const json report = json::parse(get.OutLine(), nullptr, false);
    EXPECT_EQ(get.Wait(), 0);
    EXPECT_EQ(report.at("fetched_bytes"), content.size());
    EXPECT_EQ(Content(Target()), content);
}

TEST_F(ZamctlLive, GoesOnWithAFileInAnotherRun) {
    const std::string content = WriteFile("a.bin", 1'000'000);
    service_.WriteData("faults.json", R"({"rules": [
        {"endpoint": "fileDownloader", "operation": "GetFileChunk", "calls": 9,
         "result_code": "0x80000045"}]})");
    service_.Start();
    const ProgramResult broken = Run({"file", "get", "a.bin", "-o", Target()});
    EXPECT_EQ(broken.status, 2);
    EXPECT_FALSE(fs::exists(Target()));
    const json report = json::parse(Run({"--json", "file", "get", "a.bin", "-o", Target()}).out);
    EXPECT_EQ(report.at("resumed_bytes"), 8 * 65536);
    EXPECT_EQ(report.at("fetched_bytes"), content.size() - 8 * 65536);
    EXPECT_EQ(Content(Target()), content);
}

TEST_F(ZamctlLive, EndsInTimeWhenTheServiceHangs) {
    WriteFile("a.bin", 1000);
    service_.WriteData("faults.json", R"({"rules": [{"endpoint": "fileDownloader",
        "operation": "GetFileInfo", "delay_ms": 86400000}]})");
    service_.Start();
    const ProgramResult get = Run({"file", "get", "a.bin", "-o", Target(), "--timeout", "0.1"});
    EXPECT_EQ(get.status, 2);
    EXPECT_THAT(get.err, HasSubstr("\"a.bin\" has not come whole within 0.100 s"));
}

/// Every command, over a service that takes connections and answers nothing.
TEST_F(ZamctlLive, EndsEveryCommandWithStatusFourWhenTheServiceAnswersNothing) {
    service_.Start();
    service_.WriteData("upload.json", "{}");
    ASSERT_EQ(::kill(service_.Pid(), SIGSTOP), 0);
    for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
             {"state"},
             {"state", "--watch"},
             {"stop"},
             {"settings", "get"},
             {"sync"},
             {"event", "x"},
             {"policy"},
             {"policy", "hash"},
             {"server-data"},
             {"updates-status"},
             {"upload", "settings", service_.DataDirectory() + "/upload.json"},
             {"watch"},
             {"file", "info", "a"},
             {"certs"},
             {"locales"},
             {"ping"},
             {"--json", "state"}}) {
        SCOPED_TRACE(::testing::PrintToString(command));
        std::vector<std::string> arguments = {"--timeout", "0.05"};
        arguments.insert(arguments.end(), command.begin(), command.end());
        const ProgramResult ran = Run(arguments);
        EXPECT_EQ(ran.status, 4);
        EXPECT_EQ(ran.out, "");
        EXPECT_THAT(ran.err, HasSubstr("the service 'zam_connector_id' is there, but answers "
                                       "nothing: "));
    }
    ASSERT_EQ(::kill(service_.Pid(), SIGCONT), 0);
}

TEST_F(ZamctlLive, HasTheDoctorTellAServiceThatAnswersNothingFromOneThatIsNotThere) {
    service_.Start();
    ASSERT_EQ(::kill(service_.Pid(), SIGSTOP), 0);
    const ProgramResult silent = Run({"doctor", "--timeout", "0.1"});
    EXPECT_EQ(silent.status, 4);
    EXPECT_THAT(silent.out, HasSubstr("ok       socket"));
    EXPECT_THAT(silent.out, HasSubstr("problem  service       the service 'zam_connector_id' is "
                                      "there, but answers nothing: "));
    EXPECT_THAT(silent.out, HasSubstr("Look whether zam_connectord is stopped or hangs"));
    ASSERT_EQ(::kill(service_.Pid(), SIGCONT), 0);
    service_.Stop();
    const ProgramResult away = Run({"doctor"});
    EXPECT_EQ(away.status, 3);
    EXPECT_THAT(away.out, HasSubstr("cannot reach the service 'zam_connector_id'"));
}

/// Making the connector is quick, and the call is not.
TEST_F(ZamctlLive, EndsACallThatIsAnsweredTooLate) {
    service_.WriteData("faults.json", R"({"rules": [
        {"endpoint": "connController", "operation": "GetState", "delay_ms": 86400000},
        {"endpoint": "productDataHolder", "operation": "CloseChannel", "delay_ms": 86400000}]})");
    service_.Start();
    for (const std::vector<std::string>& command : std::vector<std::vector<std::string>>{
             {"state"}, {"ping"}, {"state", "--wait", "connected"}, {"stop", "--wait"}}) {
        SCOPED_TRACE(::testing::PrintToString(command));
        std::vector<std::string> arguments = {"--timeout", "0.2"};
        arguments.insert(arguments.end(), command.begin(), command.end());
        const ProgramResult ran = Run(arguments);
        EXPECT_EQ(ran.status, 4);
        EXPECT_THAT(ran.err, HasSubstr("cannot read the state: 0x8000004B Unspecified error: no "
                                       "answer came in time\nIt may have been done all the same."));
    }
    const ProgramResult doctor = Run({"--timeout", "0.2", "doctor"});
    EXPECT_EQ(doctor.status, 4);
    EXPECT_THAT(doctor.out, HasSubstr("problem  round_trip"));
}

TEST_F(ZamctlLive, WatchesNothingThatItCouldNotSubscribeTo) {
    service_.WriteData("faults.json", R"({"rules": [{"endpoint": "zamDataNotifier",
        "operation": "Register", "delay_ms": 86400000}]})");
    service_.Start();
    for (const char* const kind : {"policy", "server-data"}) {
        const ProgramResult ran = Run({"--timeout", "0.2", "watch", kind});
        EXPECT_EQ(ran.status, 4) << kind;
        EXPECT_THAT(ran.err, HasSubstr("cannot subscribe to changes: 0x8000004B")) << kind;
    }
}

/// The doctor looks at the services itself, before the library has read the variable.
TEST_F(ZamctlLive, HasTheDoctorHeedTheTimeoutOfTheEnvironment) {
    service_.Start();
    ASSERT_EQ(::kill(service_.Pid(), SIGSTOP), 0);
    std::vector<std::string> environment = Environment();
    environment.emplace_back("ZAM_CALL_TIMEOUT_MS=50");
    EXPECT_EQ(RunProgram(ZAMCTL_EXECUTABLE, {"doctor"}, {.environment = environment}).status, 4);
}

TEST_F(ZamctlLive, HeedsTheTimeoutOfTheEnvironment) {
    service_.WriteData("faults.json", R"({"rules": [{"endpoint": "connController",
        "operation": "GetState", "delay_ms": 86400000}]})");
    service_.Start();
    std::vector<std::string> environment = Environment();
    environment.emplace_back("ZAM_CALL_TIMEOUT_MS=30");
    const ProgramResult ran =
        RunProgram(ZAMCTL_EXECUTABLE, {"state"}, {.environment = environment});
    EXPECT_EQ(ran.status, 4);
    EXPECT_THAT(ran.err, HasSubstr("no answer came in time"));
}

TEST_F(ZamctlLive, AnswersWithCertificatesAndLocales) {
    service_.Start();
    EXPECT_EQ(Run({"certs"}).status, 0);
    EXPECT_EQ(json::parse(Run({"--json", "certs"}).out).at("result"), 0);
    const json locales = json::parse(Run({"--json", "locales"}).out).at("locales");
    EXPECT_EQ(locales.size(), 22U);
    EXPECT_EQ(locales.at(7).at("default"), true);
}

TEST_F(ZamctlLive, DoctorFindsEveryEndpoint) {
    service_.Start();
    const ProgramResult result = Run({"--json", "doctor"});
    EXPECT_EQ(result.status, 0) << result.err;
    std::set<int> riids;
    const json report = json::parse(result.out);
    for (const json& check : report.at("checks")) {
        if (check.at("check") == "endpoint") {
            riids.insert(check.at("riid").get<int>());
        }
    }
    EXPECT_EQ(riids.size(), 9U);
}

/// What a burst of calls made of the fast channel, in a run with this setting of its own.
class ZamctlFastChannel : public ZamctlLive {
protected:
    using ZamctlLive::ZamctlLive;

    /// Whether this build and this machine have one, for a service that has it on.
    static bool MayBeOffered(const json& channel) {
        return channel.value("off_by", "") != "build" && ::sysconf(_SC_NPROCESSORS_ONLN) > 1;
    }

    json Ping(const std::string& spin) const {
        std::vector<std::string> environment = Environment();
        environment.push_back("ZAM_SPIN=" + spin);
        const ProgramResult ran = RunProgram(
            ZAMCTL_EXECUTABLE, {"--json", "--quiet", "ping", "--interval", "0", "--count", "300"},
            {.environment = environment});
        EXPECT_EQ(ran.status, 0) << ran.err;
        return json::parse(ran.out).at("summary").at("fast_channel");
    }
};

TEST_F(ZamctlFastChannel, CountsTheCallsOfAPing) {
    service_.Start({"--spin", "50"});
    const json channel = Ping("50");
    EXPECT_EQ(channel.at("calls"), 300);
    EXPECT_EQ(channel.at("offered"), MayBeOffered(channel));
    // How many go through memory is up to the machine.
    EXPECT_GE(channel.at("memory_calls"), channel.at("vain_polls"));
    EXPECT_LE(channel.at("memory_calls"), 300);
    EXPECT_EQ(channel.at("vain_us") > 0, channel.at("vain_polls") > 0);
}

TEST_F(ZamctlFastChannel, IsOffInZamctlWithItsOwnSetting) {
    service_.Start({"--spin", "50"});
    const json channel = Ping("0");
    EXPECT_THAT(channel.at("off_by"), AnyOf("ZAM_SPIN", "build"));
    EXPECT_EQ(channel.at("offered"), MayBeOffered(channel));
    EXPECT_EQ(channel.at("taken"), false);
    EXPECT_EQ(channel.at("calls"), 300);
    EXPECT_EQ(channel.at("memory_calls"), 0);
}

TEST_F(ZamctlFastChannel, IsNotOfferedByAServiceThatHasItOff) {
    service_.Start({"--spin", "0"});
    const json channel = Ping("50");
    EXPECT_TRUE(channel.contains("off_by"));
    EXPECT_EQ(channel.at("offered"), false);
    EXPECT_EQ(channel.at("taken"), false);
    EXPECT_EQ(channel.at("memory_calls"), 0);
    EXPECT_EQ(channel.at("vain_polls"), 0);
    const ProgramResult doctor = Run({"doctor"});
    EXPECT_EQ(doctor.status, 0);
    EXPECT_THAT(doctor.out, HasSubstr("ok       fast_channel  "));
}

class ServiceWithoutFastChannel : public ZamctlFastChannel {
protected:
    ServiceWithoutFastChannel() : ZamctlFastChannel(ZAM_CONNECTORD_OF_SOCKETS) {}
};

TEST_F(ServiceWithoutFastChannel, OffersNoneAndTakesItsSettingAllTheSame) {
    service_.Start({"--spin", "50"});
    const json channel = Ping("50");
    EXPECT_EQ(channel.at("offered"), false);
    EXPECT_EQ(channel.at("taken"), false);
    EXPECT_EQ(channel.at("calls"), 300);
    EXPECT_EQ(channel.at("memory_calls"), 0);
    EXPECT_EQ(service_.Stop(), 0);
    const zam_test::ScopedEnvironment spin("ZAM_SPIN", "50");
    service_.Start();
    EXPECT_EQ(Ping("50").at("offered"), false);
    EXPECT_EQ(service_.Log().find("SpinCap"), std::string::npos);
}

TEST_F(ZamctlLive, WritesIntoNoConnectionWhenItsDescriptorsAreClosed) {
    service_.Start();
    const auto status = [this](const std::string& redirections) {
        return RunProgram("/bin/sh",
                          {"-c", "exec \"$0\" -v state " + redirections, ZAMCTL_EXECUTABLE},
                          {.environment = Environment()})
            .status;
    };
    EXPECT_EQ(status("<&-"), 0);
    EXPECT_EQ(status(">&-"), 2);
    EXPECT_EQ(status("2>&-"), 0);
    EXPECT_EQ(status("<&- >&- 2>&-"), 2);
    EXPECT_EQ(service_.Log().find("connection closed"), std::string::npos) << service_.Log();
}

}  // namespace
}  // namespace zamctl::test
