#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "daemon/daemon_options.h"
#include "daemon/descriptor_share.h"
#include "data/sample_data.h"
#include "data/settings_json.h"
#include "faults/fault_rules.h"
#include "link/connection_plan.h"
#include "support/lines.h"
#include "support/temporary_folder.h"
#include "vocabulary/settings_fields.h"
#include "zam_platform/posix_error.h"

namespace zam_service {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using zam_json::JsonDocument;
using zam_test::TemporaryFolder;

/// What a command line came to.
struct Parsed {
    std::optional<DaemonOptions> options;
    std::string out;
    std::string err;
    int status = -1;
};

Parsed Parse(std::vector<const char*> arguments) {
    arguments.insert(arguments.begin(), "zam_connectord");
    std::ostringstream out;
    std::ostringstream err;
    Parsed parsed;
    parsed.options =
        ParseOptions(static_cast<int>(arguments.size()), arguments.data(), out, err, parsed.status);
    parsed.out = out.str();
    parsed.err = err.str();
    return parsed;
}

TEST(DaemonOptions, TakeDefaults) {
    ::setenv("ZAM_RUNTIME_DIR", "/somewhere", 1);
    const Parsed parsed = Parse({});
    ASSERT_TRUE(parsed.options);
    EXPECT_EQ(parsed.options->dataFolder, "");
    EXPECT_EQ(parsed.options->initFolder, "");
    EXPECT_EQ(parsed.options->runtimeDirectory, "/somewhere");
    EXPECT_FALSE(parsed.options->group);
    EXPECT_EQ(parsed.options->readyFd, -1);
    EXPECT_FALSE(parsed.options->spin);
    EXPECT_THAT(parsed.out + parsed.err, IsEmpty());
}

TEST(DaemonOptions, TakeEveryOption) {
    const Parsed parsed = Parse({"--data", "d", "--runtime-dir", "/r", "--group", "root", "--spin",
                                 "7", "--ready-fd", "8"});
    ASSERT_TRUE(parsed.options);
    EXPECT_EQ(parsed.options->dataFolder, "d");
    EXPECT_EQ(parsed.options->runtimeDirectory, "/r");
    EXPECT_EQ(parsed.options->group, gid_t{0});
    EXPECT_EQ(parsed.options->spin, std::chrono::microseconds(7));
    EXPECT_EQ(parsed.options->readyFd, 8);
    EXPECT_EQ(Parse({"--init", "i"}).options->initFolder, "i");
}

TEST(DaemonOptions, AnswerHelpAndVersionOnStandardOutput) {
    for (const char* const option : {"--help", "-h", "--version"}) {
        const Parsed parsed = Parse({option});
        EXPECT_FALSE(parsed.options);
        EXPECT_EQ(parsed.status, kExitDone);
        EXPECT_THAT(parsed.out, HasSubstr("zam_connectord"));
        EXPECT_THAT(parsed.err, IsEmpty());
    }
}

TEST(DaemonOptions, AnswerWrongOptionsOnStandardErrorWithWhatToDo) {
    const std::vector<std::pair<std::vector<const char*>, std::string>> rows = {
        {{"--bogus"}, "--bogus"},
        {{"extra"}, "extra"},
        {{"--data"}, "--data"},
        {{"--data", ""}, "--data: needs a value that is not empty"},
        {{"--init", ""}, "--init: needs a value"},
        {{"--runtime-dir", ""}, "--runtime-dir: needs a value"},
        {{"--data", "d", "--init", "i"}, "excludes"},
        {{"--data", "d", "--data", "e"}, "--data"},
        {{"--group", "no_such_group_here"}, "'getent group' lists those there are"},
        {{"--ready-fd", "x"}, "--ready-fd"},
        {{"--ready-fd", "-1"}, "--ready-fd"},
    };
    for (const auto& [arguments, message] : rows) {
        const Parsed parsed = Parse(arguments);
        EXPECT_FALSE(parsed.options) << message;
        EXPECT_EQ(parsed.status, kExitUsage) << message;
        EXPECT_THAT(parsed.err, HasSubstr(message));
        EXPECT_THAT(parsed.err, HasSubstr("Run zam_connectord --help for the options."));
        EXPECT_THAT(parsed.out, IsEmpty()) << message;
    }
}

TEST(Descriptors, AreSharedByUsersAndNeededByTheService) {
    EXPECT_EQ(ConnectionsOfUser(65536, 4096), 4096U);
    EXPECT_EQ(ConnectionsOfUser(1024, 4096), 480U);
    EXPECT_EQ(ConnectionsOfUser(80, 4096), 8U);
    for (const rlim_t tooFew : {0UL, 64UL, 79UL}) {
        try {
            ConnectionsOfUser(tooFew, 4096);
            ADD_FAILURE() << tooFew;
        } catch (const zam_platform::PlatformError& error) {
            EXPECT_EQ(std::string(error.what()),
                      "too few file descriptors: the limit (RLIMIT_NOFILE) is " +
                          std::to_string(tooFew) +
                          ", at least 80 are needed; raise it with 'ulimit -n', or LimitNOFILE= "
                          "in the unit");
        }
    }
}

TEST(Sample, IsReadAndIsEqualToTheDefaults) {
    const TemporaryFolder folder;
    WriteSample(folder.Path("sample"));
    const auto document = [&](const char* name) {
        return JsonDocument(name, folder.Read(std::string("sample/") + name));
    };
    const JsonDocument connection("connection.json", folder.Read("sample/connection.json"));
    const ConnectionPlan plan = ReadConnectionPlan(connection.Root());
    const ConnectionPlan byDefault;
    const auto same = [](const LinkStep& left, const LinkStep& right) {
        return left.state == right.state && left.after == right.after;
    };
    EXPECT_TRUE(std::equal(plan.start.begin(), plan.start.end(), byDefault.start.begin(),
                           byDefault.start.end(), same));
    EXPECT_TRUE(std::equal(plan.stop.begin(), plan.stop.end(), byDefault.stop.begin(),
                           byDefault.stop.end(), same));
    EXPECT_EQ(plan.sync, byDefault.sync);
    EXPECT_FALSE(plan.flap || plan.refuseAfter || plan.startResult);
    EXPECT_EQ(ReadSettings(document(kSettingsFile).Root()), zam_connector::ZamConnectorSettings());
    for (const zam_vocabulary::SettingsField& field : zam_vocabulary::SettingsFields()) {
        EXPECT_TRUE(document(kSettingsFile).Root().Find(field.name).has_value()) << field.name;
    }
    EXPECT_TRUE(FaultRules::Read(document(kFaultsFile).Root()).IsEmpty());
}

TEST(Sample, HoldsFaultRulesThatWorkOnceTheirCommentsAreTakenAway) {
    const TemporaryFolder folder;
    WriteSample(folder.Path());
    std::string text;
    for (const std::string& line : zam_test::Lines(folder.Read(kFaultsFile))) {
        // The rules stand deeper than the head's own comments, and begin with a brace or a key.
        const std::size_t comment = line.find("// ");
        const std::size_t first =
            comment == std::string::npos ? comment : line.find_first_not_of(' ', comment + 2);
        const bool isRule = comment != std::string::npos && comment > 4 &&
                            (line[first] == '{' || line[first] == '"');
        text += (isRule ? line.substr(comment + 3) : line) + "\n";
    }
    EXPECT_THAT(text, HasSubstr("{\"endpoint\""));
    const JsonDocument document(kFaultsFile, text);
    EXPECT_FALSE(FaultRules::Read(document.Root()).IsEmpty());
}

TEST(Sample, OverwritesNothing) {
    for (const SampleFile& file : SampleFiles()) {
        const TemporaryFolder folder;
        fs::create_directories(fs::path(folder.Path(file.name)).parent_path());
        folder.Write(file.name, "mine");
        try {
            WriteSample(folder.Path());
            ADD_FAILURE() << file.name;
        } catch (const zam_platform::PlatformError& error) {
            EXPECT_THAT(error.what(), HasSubstr(std::string(file.name) + "' is there already"));
        }
        EXPECT_EQ(folder.Read(file.name), "mine");
        EXPECT_EQ(std::distance(fs::directory_iterator(folder.Path()), fs::directory_iterator()),
                  1);
    }
}

TEST(TemporarySample, IsPrivateAndRemovedWithEverythingInIt) {
    std::string path;
    {
        const TemporarySample sample;
        path = sample.Path();
        struct stat status {};
        ASSERT_EQ(::stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777U, 0700U);
        EXPECT_TRUE(fs::exists(path + "/connection.json"));
        fs::create_directory(path + "/uploads");
    }
    EXPECT_FALSE(fs::exists(path));
}

}  // namespace
}  // namespace zam_service
