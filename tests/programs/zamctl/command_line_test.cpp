#include "command_fixture.h"
#include "version.h"
#include "zam_connector/result_code.h"

namespace zamctl::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

using CommandLineTest = CommandTest;
using Arguments = std::vector<std::string>;

TEST_F(CommandLineTest, PrintsTheHelpOfEveryCommandOnStandardOutput) {
    for (Arguments arguments :
         {Arguments{}, Arguments{"state"}, Arguments{"start"}, Arguments{"stop"},
          Arguments{"settings"}, Arguments{"settings", "get"}, Arguments{"settings", "set"},
          Arguments{"sync"}, Arguments{"event"}, Arguments{"explain"}, Arguments{"ping"},
          Arguments{"doctor"}, Arguments{"watch"}, Arguments{"file"}, Arguments{"file", "get"},
          Arguments{"certs"}, Arguments{"locales"}}) {
        for (const std::string flag : {"--help", "-h"}) {
            Arguments whole = arguments;
            whole.push_back(flag);
            SCOPED_TRACE(::testing::PrintToString(whole));
            const Ran ran = Run(whole);
            EXPECT_EQ(ran.status, 0);
            EXPECT_EQ(ran.err, "");
            std::string usage = "Usage: zamctl";
            for (const std::string& word : arguments) {
                usage += ' ' + word;
            }
            EXPECT_THAT(ran.out, AllOf(HasSubstr(usage), HasSubstr("Exit status: 0 done")));
        }
    }
}

TEST_F(CommandLineTest, PrintsTheVersionOnStandardOutput) {
    const Ran ran = Run({"--version"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.out, std::string("zamctl ") + kVersion + "\n");
    EXPECT_EQ(ran.err, "");
    EXPECT_EQ(Run({"--json", "--version"}).Document(), Json({{"version", kVersion}}));
    EXPECT_EQ(Run({"--version", "--json"}).Document(), Json({{"version", kVersion}}));
}

TEST_F(CommandLineTest, AdvisesOnEveryWrongCommandLine) {
    struct Row {
        Arguments arguments;
        const char* message;
        const char* advice;
    };
    const std::vector<Row> rows = {
        Row{{}, "no command given; the commands are state, start", "'zamctl --help'"},
        Row{{"--json"}, "no command given", "'zamctl --help'"},
        Row{{"stat"}, "'stat' is no command; did you mean 'state'?", "'zamctl --help'"},
        Row{{"setings", "get"}, "did you mean 'settings'?", "'zamctl --help'"},
        Row{{"--json", "evnet", "x"}, "did you mean 'event'?", "'zamctl --help'"},
        Row{{"frobnicate"}, "'frobnicate' is no command; the commands are state", "--help"},
        Row{{""}, "'' is no command", "'zamctl --help'"},
        Row{{"settings"},
            "no command given; the commands are get, set",
            "'zamctl settings --help'"},
        Row{{"settings", "gte"},
            "'gte' is no command of 'settings'; did you mean 'get'?",
            "'zamctl settings --help'"},
        Row{{"state", "--jsn"},
            "unknown option '--jsn'; did you mean '--json'?",
            "'zamctl state --help'"},
        Row{{"settings", "set", "a=1", "--form", "x"},
            "unknown option '--form'; did you mean '--from'?",
            "'zamctl settings set --help'"},
        Row{{"--wait", "state"}, "unknown option '--wait'", "'zamctl state --help'"},
        Row{{"sync", "--xyzzy=1"},
            "unknown option '--xyzzy'; the options are --help, --version, --json",
            "'zamctl sync --help'"},
        Row{{"state", "-x"}, "unknown option '-x'", "'zamctl state --help'"},
        Row{{"state", "more"}, "unexpected argument 'more'", "'zamctl state --help'"},
        Row{{"sync", "state"}, "unexpected argument 'state'", "'zamctl sync --help'"},
        Row{{"state", "--wait"}, "--wait", "'zamctl state --help'"},
        Row{{"ping", "--count", "1", "--count", "2"}, "--count", "'zamctl ping --help'"},
        Row{{"stop", "--timeout", "x"}, "--timeout: 'x'", "'zamctl stop --help'"},
        Row{{"--timeout", "-1", "locales"}, "--timeout: '-1'", "'zamctl locales --help'"}};
    for (const auto& [arguments, message, advice] : rows) {
        SCOPED_TRACE(::testing::PrintToString(arguments));
        const Ran ran = Run(arguments);
        ExpectFailure(ran, 1);
        EXPECT_THAT(ran.err, AllOf(HasSubstr(message), HasSubstr(advice)));
    }
    EXPECT_EQ(provider_.opens, 0);
}

TEST_F(CommandLineTest, TakesGlobalOptionsBeforeAndBehindTheCommand) {
    for (const Arguments& arguments :
         {Arguments{"--json", "settings", "get"}, Arguments{"settings", "--json", "get"},
          Arguments{"settings", "get", "--json"}}) {
        EXPECT_EQ(Run(arguments).Document().at("result"), 0);
    }
}

TEST_F(CommandLineTest, SaysWhenTheResultCannotBeWritten) {
    std::istringstream in;
    std::ostringstream out;
    std::ostringstream err;
    out.setstate(std::ios::badbit);
    RecordKeeper records(err, zor::logger::kLevelError);
    Application application({in, out, err, provider_, records, clock_, system_});
    EXPECT_EQ(application.Run({"state"}), 2);
    EXPECT_THAT(err.str(), StartsWith("zamctl state: the result could not be written"));
}

/// Every command that asks the service.
const std::vector<Arguments> kCommandsOfTheService = {{"state"},
                                                      {"state", "--wait", "stopped"},
                                                      {"start", "--server", "a", "--port", "1"},
                                                      {"stop"},
                                                      {"settings", "get"},
                                                      {"settings", "set", "sync_period_s=1"},
                                                      {"sync"},
                                                      {"event", "text"},
                                                      {"ping"},
                                                      {"watch"},
                                                      {"state", "--watch"},
                                                      {"file", "info", "name"},
                                                      {"certs"},
                                                      {"locales"}};

TEST_F(CommandLineTest, SaysWithoutAServiceWhereItLookedAndWhatToDo) {
    provider_.noService = "Handle was not received";
    system_.LoseDirectory();
    for (const Arguments& command : kCommandsOfTheService) {
        SCOPED_TRACE(::testing::PrintToString(command));
        for (const std::string format : {"--quiet", "--json"}) {
            Arguments arguments = command;
            arguments.push_back(format);
            const Ran ran = Run(arguments);
            ExpectFailure(ran, 3);
            EXPECT_THAT(ran.err,
                        AllOf(HasSubstr("cannot reach the service 'fake_service': Handle was "
                                        "not received"),
                              HasSubstr("Start zam_connectord"), HasSubstr("'/run/fake'"),
                              HasSubstr("ZAM_RUNTIME_DIR"), HasSubstr("'zamctl doctor'")));
        }
    }
}

TEST_F(CommandLineTest, QuotesWithoutAServiceTheLoggedCauseOnce) {
    provider_.noService = "Handle was not received";
    provider_.logged = "socket '/run/fake/fake_service.sock': Connection refused";
    for (const Arguments& command : kCommandsOfTheService) {
        SCOPED_TRACE(::testing::PrintToString(command));
        const Ran ran = Run(command);
        ExpectFailure(ran, 3);
        EXPECT_THAT(ran.err, HasSubstr("cannot reach the service 'fake_service': socket "
                                       "'/run/fake/fake_service.sock': Connection refused\n"));
        EXPECT_EQ(ran.err.find("Connection refused"), ran.err.rfind("Connection refused"));
        EXPECT_THAT(ran.err, ::testing::Not(HasSubstr("Handle was not received")));
    }
}

TEST_F(CommandLineTest, NamesAMissingEndpoint) {
    provider_.missingEndpoint = "fake.commands";
    for (const Arguments& command : kCommandsOfTheService) {
        SCOPED_TRACE(::testing::PrintToString(command));
        const Ran ran = Run(command);
        ExpectFailure(ran, 3);
        EXPECT_THAT(ran.err, AllOf(HasSubstr("the service 'fake_service' lacks an endpoint: "
                                             "no riid for fake.commands"),
                                   HasSubstr("Restart zam_connectord")));
    }
}

TEST_F(CommandLineTest, SaysWhenTheLibraryReportsSuccessAndGivesNothing) {
    provider_.nothingReturned = "the library answered 0x00000000 No error but gave no connector";
    provider_.logged = "Create zam connector proxy: Invalid argument";
    const Ran ran = Run({"state"});
    ExpectFailure(ran, 3);
    EXPECT_THAT(ran.err, HasSubstr("cannot make the connector: the library answered 0x00000000 No "
                                   "error but gave no connector: Create zam connector proxy: "
                                   "Invalid argument\n"));
}

TEST_F(CommandLineTest, NamesTheServiceThatIsAway) {
    provider_.services = {"fake_service", "fake_files"};
    provider_.goneService = "fake_files";
    provider_.noService = "no socket";
    const Ran ran = Run({"state"});
    ExpectFailure(ran, 3);
    EXPECT_THAT(ran.err, HasSubstr("cannot reach the service 'fake_files': no socket\n"));
}

/// A controller whose calls fail in the library, which logs the cause.
class LoggingController final : public zam_connector::IZamConnController {
public:
    int Start(const zam_connector::ZamConnectionParameters& /*parameters*/) noexcept override {
        return Fail();
    }
    int Stop() noexcept override { return Fail(); }
    int GetState(zam_connector::ZamConnectorState& /*state*/) const noexcept override {
        return Fail();
    }

private:
    static int Fail() noexcept {
        LogError("the service closed the connection");
        LogError("ipc call terminated with a error 3");
        return zam_connector::kUnspecifiedError;
    }
};

class LoggingProvider final : public ConnectorProvider {
public:
    explicit LoggingProvider(FakeProvider& rest) : rest_(rest) {}

    std::vector<std::string> ServiceNames() const override { return rest_.ServiceNames(); }
    ConnectorInterfaces Open() override {
        return {controller_,
                rest_.settingsHolder,
                rest_.stateSubscriber,
                rest_.commandSender,
                rest_.dataProvider,
                rest_.dataChangeSubscriber,
                rest_.productDataHolder,
                rest_.fileDownloader,
                rest_.certsDownloader,
                rest_.localeInfo,
                rest_.locationInfo};
    }
    std::vector<EndpointReport> Endpoints(const std::string& service) override {
        return rest_.Endpoints(service);
    }
    FastChannelUse FastChannel() override { return rest_.FastChannel(); }

private:
    LoggingController controller_;
    FakeProvider& rest_;
};

TEST_F(CommandLineTest, QuotesTheCauseOfAFailedCallOnce) {
    LoggingProvider provider(provider_);
    for (const bool verbose : {false, true}) {
        std::istringstream in;
        std::ostringstream out;
        std::ostringstream err;
        RecordKeeper records(err, zor::logger::kLevelError);
        Application application({in, out, err, provider, records, clock_, system_});
        EXPECT_EQ(application.Run(verbose ? Arguments{"-v", "stop"} : Arguments{"stop"}), 2);
        EXPECT_EQ(out.str(), "");
        const std::string message =
            "zamctl stop: cannot stop the connection: 0x8000004B Unspecified error: the service "
            "closed the connection\n"
            "'zamctl doctor' checks whether the service runs and can be reached.\n";
        const std::string records12 =
            "[error] fakes:1 LogError: the service closed the connection\n"
            "[error] fakes:1 LogError: ipc call terminated with a error 3\n";
        EXPECT_EQ(err.str(), verbose ? records12 + message : message);
    }
}

}  // namespace
}  // namespace zamctl::test
