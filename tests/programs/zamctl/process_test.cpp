#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <future>
#include <nlohmann/json.hpp>

#include "support/program.h"
#include "support/temporary_folder.h"

namespace zamctl::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;
using zam_connector::test::ProgramResult;
using zam_connector::test::RunProgram;
using Arguments = std::vector<std::string>;

/// The program itself, with an empty runtime directory of its own and so without any service.
class ZamctlProcess : public ::testing::Test {
protected:
    ProgramResult Run(const Arguments& arguments, const std::string& runtimeDirectory) const {
        return RunProgram(ZAMCTL_EXECUTABLE, arguments,
                          {.environment = {{"ZAM_RUNTIME_DIR=" + runtimeDirectory}}});
    }
    ProgramResult Run(const Arguments& arguments) const { return Run(arguments, directory_); }

    zam_test::TemporaryFolder scratch_;
    std::filesystem::path directory_ = scratch_.Path();
};

TEST_F(ZamctlProcess, EndsWithStatusThreeWithoutAService) {
    for (const Arguments& arguments :
         {Arguments{"state"}, Arguments{"--json", "state"}, Arguments{"state", "--wait", "stopped"},
          Arguments{"start", "--server", "server.example", "--port", "1"}, Arguments{"stop"},
          Arguments{"settings", "get"}, Arguments{"settings", "set", "sync_period_s=1"},
          Arguments{"sync"}, Arguments{"event", "text"}, Arguments{"--json", "ping"},
          Arguments{"policy"}, Arguments{"--json", "updates-status", "hash"}, Arguments{"watch"},
          Arguments{"state", "--watch"}, Arguments{"file", "info", "name"},
          Arguments{"file", "get", "name", "-o", (directory_ / "name").string()},
          Arguments{"--json", "certs"}, Arguments{"locales"}}) {
        SCOPED_TRACE(::testing::PrintToString(arguments));
        const ProgramResult result = Run(arguments);
        EXPECT_EQ(result.status, 3);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err,
                    AllOf(HasSubstr("cannot reach the service 'zam_connector_id': socket"),
                          HasSubstr("zam_connector_id.sock': No such file or directory\n"),
                          HasSubstr("Start zam_connectord for the directory '" +
                                    directory_.string() + "', or set ZAM_RUNTIME_DIR")));
        EXPECT_EQ(result.err.find("No such file"), result.err.rfind("No such file"));
    }
}

TEST_F(ZamctlProcess, SaysWhatIsWrongWithTheDirectory) {
    std::filesystem::permissions(directory_, std::filesystem::perms::all);
    const ProgramResult open = Run({"state"});
    EXPECT_EQ(open.status, 3);
    EXPECT_EQ(open.out, "");
    EXPECT_THAT(open.err,
                HasSubstr(::geteuid() == 0 ? "Set ZAM_RUNTIME_DIR to a directory that only its"
                                           : "Run 'chmod go-w " + directory_.string() + "'."));
    std::filesystem::create_directory_symlink(".", directory_ / "link");
    const ProgramResult link = Run({"doctor"}, (directory_ / "link/").string());
    EXPECT_EQ(link.status, 3);
    EXPECT_THAT(link.out, HasSubstr("problem  directory     " + (directory_ / "link").string() +
                                    " is a symbolic link\n"));
    const ProgramResult relative = Run({"state"}, "relative");
    EXPECT_EQ(relative.status, 3);
    EXPECT_THAT(relative.err, HasSubstr("Set ZAM_RUNTIME_DIR to the absolute path"));
    const ProgramResult missing = Run({"state"}, directory_ / "missing");
    EXPECT_EQ(missing.status, 3);
    EXPECT_THAT(missing.err, HasSubstr("Start zam_connectord for the directory '" +
                                       (directory_ / "missing").string() + "'"));
}

TEST_F(ZamctlProcess, PrintsTheLibrarysRecordsOnlyWhenVerbose) {
    EXPECT_THAT(Run({"state"}).err, Not(HasSubstr("[error]")));
    EXPECT_THAT(Run({"-v", "state"}).err, HasSubstr("[error] service_locator:"));
}

TEST_F(ZamctlProcess, SaysOnceWhatIsWrongWithTheTimeoutOfTheEnvironment) {
    const auto run = [this](const Arguments& arguments) {
        return RunProgram(ZAMCTL_EXECUTABLE, arguments,
                          {.environment = {{"ZAM_RUNTIME_DIR=" + directory_.string(),
                                            "ZAM_CALL_TIMEOUT_MS=1\ns"}}});
    };
    constexpr char kWrong[] =
        R"(zamctl: ZAM_CALL_TIMEOUT_MS is '1\x0as', which is no whole number from 0 to 2147483647, )"
        "and counts as not set: ";
    for (const auto& [arguments, holds] : std::vector<std::pair<Arguments, std::string>>{
             {{"-v", "state"}, "each call has 10 s\n"},
             {{"watch"}, "calls have no time-out\n"},
             {{"--timeout", "1", "state"}, "--timeout alone bounds the command\n"}}) {
        SCOPED_TRACE(::testing::PrintToString(arguments));
        const ProgramResult result = run(arguments);
        EXPECT_EQ(result.status, 3);
        EXPECT_THAT(result.err, ::testing::StartsWith(kWrong + holds));
        EXPECT_EQ(result.err.find("TIMEOUT_MS"), result.err.rfind("TIMEOUT_MS"));
        EXPECT_THAT(result.err, HasSubstr(": cannot reach the service 'zam_connector_id': socket"));
    }
    EXPECT_EQ(run({"complete", "--", "settings", "set", ""}).err, "");
}

TEST_F(ZamctlProcess, TakesWholeNumbersOfThirtyOneBitsForATimeoutOfTheEnvironment) {
    for (const auto& [text, isGood] :
         std::vector<std::pair<std::string, bool>>{{"0", true},
                                                   {"2147483647", true},
                                                   {"2147483648", false},
                                                   {"-1", false},
                                                   {"", false},
                                                   {"9223372036854775808", false}}) {
        const ProgramResult result =
            RunProgram(ZAMCTL_EXECUTABLE, {"state"},
                       {.environment = {{"ZAM_RUNTIME_DIR=" + directory_.string(),
                                         "ZAM_CALL_TIMEOUT_MS=" + text}}});
        EXPECT_EQ(result.err.find("counts as not set") == std::string::npos, isGood) << text;
    }
}

TEST_F(ZamctlProcess, EndsWithStatusOneForWrongWordsAndValues) {
    for (const Arguments& arguments :
         {Arguments{}, Arguments{"stat"}, Arguments{"settings", "gett"},
          Arguments{"start", "--server", "a", "--port", "0"},
          Arguments{"start", "--server", "a", "--port", "65536"},
          Arguments{"start", "--server", "a", "--port", "-1"},
          Arguments{"start", "--server", "a", "--port", "http"},
          Arguments{"settings", "set", "no_such_setting=1"},
          Arguments{"event", std::string(129, 'e')}, Arguments{"ping", "--count", "0"},
          Arguments{"explain", "nonsense"}, Arguments{"state", "--unknown"},
          Arguments{"policy", "hush"}, Arguments{"upload"}, Arguments{"upload", "settings"}}) {
        SCOPED_TRACE(::testing::PrintToString(arguments));
        const ProgramResult result = Run(arguments);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, AllOf(HasSubstr("zamctl"), HasSubstr("--help'.\n")));
    }
}

TEST_F(ZamctlProcess, ExplainsCodesWithoutAService) {
    const ProgramResult result = Run({"explain", "0x8000004B", "-2147483578"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out,
              "0x8000004B Unspecified error (facility 0, general)\n"
              "0x80000046 Invalid argument (facility 0, general)\n");
    EXPECT_EQ(result.err, "");
}

TEST_F(ZamctlProcess, PrintsHelpAndVersion) {
    const ProgramResult help = Run({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, HasSubstr("Usage: zamctl"));
    EXPECT_EQ(help.err, "");
    const ProgramResult version = Run({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.out, "zamctl " ZAMCTL_VERSION "\n");
}

TEST_F(ZamctlProcess, ReportsThroughDoctorWhatIsMissing) {
    const ProgramResult result = Run({"--json", "doctor"});
    EXPECT_EQ(result.status, 3);
    const nlohmann::json report = nlohmann::json::parse(result.out);
    EXPECT_EQ(report.at("status"), "problem");
    const std::vector<std::string> found = [&report] {
        std::vector<std::string> lines;
        for (const nlohmann::json& check : report.at("checks")) {
            lines.push_back(check.at("check").get<std::string>() + ' ' +
                            check.at("status").get<std::string>());
        }
        return lines;
    }();
    EXPECT_THAT(
        found, ::testing::IsSupersetOf({"zamctl ok", "library ok", "runtime_dir ok", "directory ok",
                                        "socket problem", "service problem"}));
    EXPECT_THAT(result.err, HasSubstr("the connector cannot be made"));
}

TEST_F(ZamctlProcess, SaysWhenStandardOutputTakesNothing) {
    // The shell leads the output to a device that is always full.
    const ProgramResult result =
        RunProgram("/bin/sh", {"-c", "exec \"$0\" explain 1 >/dev/full", ZAMCTL_EXECUTABLE});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("the result could not be written"));
}

TEST_F(ZamctlProcess, TakesAClosedStandardOutputForAFullOne) {
    const ProgramResult result =
        RunProgram("/bin/sh", {"-c", "exec \"$0\" explain 1 >&-", ZAMCTL_EXECUTABLE});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("the result could not be written"));
}

TEST_F(ZamctlProcess, SaysWhenStandardInputCannotBeRead) {
    for (const char* const command :
         {"exec \"$0\" upload settings - <&-", "exec \"$0\" upload settings - </"}) {
        SCOPED_TRACE(command);
        const ProgramResult result = RunProgram("/bin/sh", {"-c", command, ZAMCTL_EXECUTABLE});
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.err, HasSubstr("standard input: cannot be read"));
    }
}

// ThreadSanitizer holds signals back while a write blocks.
#ifndef ZAM_TEST_HOLDS_SIGNALS_BACK

/// A pipe that is full and that nobody reads.
class FullPipe {
public:
    FullPipe() {
        EXPECT_EQ(::pipe2(ends_.data(), O_CLOEXEC | O_NONBLOCK), 0);
        const std::string piece(4096, 'x');
        while (::write(ends_[1], piece.data(), piece.size()) > 0) {
        }
        ::fcntl(ends_[1], F_SETFL, 0);
    }
    FullPipe(const FullPipe&) = delete;
    FullPipe& operator=(const FullPipe&) = delete;
    ~FullPipe() {
        ::close(ends_[0]);
        ::close(ends_[1]);
    }

    /// For a child to open.
    std::string Path() const { return fmt::format("/proc/{}/fd/{}", ::getpid(), ends_[1]); }

private:
    std::array<int, 2> ends_{};
};

TEST_F(ZamctlProcess, EndsInTimeThoughNobodyReadsItsOutputs) {
    const FullPipe pipe;
    struct Row {
        const char* command;
        int status;
    };
    // Side by side: each takes its time and a second more.
    std::vector<std::future<int>> runs;
    const Row rows[] = {
        {"--timeout 0.05 explain 1 >\"$1\"", 2}, {"--timeout 0.05 explain 1 >\"$1\" 2>&1", 2},
        {"--timeout 0.05 --help >\"$1\"", 2},    {"--timeout 0.05 doctor >\"$1\" 2>&1", 2},
        {"--timeout 1 state 2>\"$1\"", 3},       {"--timeout 0.05 -v state 2>\"$1\"", 2},
        {"--timeout 1 watch 2>\"$1\"", 3},       {"--timeout 1 file get a -o a 2>\"$1\"", 3}};
    for (const Row& row : rows) {
        runs.push_back(std::async(std::launch::async, [&] {
            return RunProgram("/bin/sh",
                              {"-c", fmt::format("exec \"$0\" {}", row.command), ZAMCTL_EXECUTABLE,
                               pipe.Path()},
                              {.environment = {{"ZAM_RUNTIME_DIR=" + directory_.string()}}})
                .status;
        }));
    }
    for (std::size_t at = 0; at < runs.size(); ++at) {
        EXPECT_EQ(runs[at].get(), rows[at].status) << rows[at].command;
    }
}

#endif

TEST_F(ZamctlProcess, EndsAsEverWithoutStandardError) {
    const ProgramResult result =
        RunProgram("/bin/sh", {"-c", "exec \"$0\" explain 1 2>&-", ZAMCTL_EXECUTABLE});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "0x00000001 False (facility 0, general)\n");
    EXPECT_EQ(RunProgram("/bin/sh", {"-c", "exec \"$0\" unknown 2>&-", ZAMCTL_EXECUTABLE}).status,
              1);
}

}  // namespace
}  // namespace zamctl::test
