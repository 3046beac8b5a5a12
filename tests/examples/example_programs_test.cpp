// The programs of the folder examples, as processes over the real service in another.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "support/program.h"
#include "support/running_program.h"
#include "zam_connector_testing/service_process.h"

namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using zam_connector::test::ProgramResult;
using zam_connector::test::RunProgram;
using zamctl::test::RunningProgram;

class ExampleProgram : public ::testing::Test {
protected:
    std::vector<std::string> Environment() const {
        return {"ZAM_RUNTIME_DIR=" + service_.RuntimeDirectory()};
    }

    ProgramResult Run(const std::string& program,
                      const std::vector<std::string>& arguments = {}) const {
        return RunProgram(program, arguments, {.environment = Environment()});
    }

    /// What a program that succeeds prints.
    std::string Out(const std::string& program,
                    const std::vector<std::string>& arguments = {}) const {
        const ProgramResult result = Run(program, arguments);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        return result.out;
    }

    zam_connector::testing::ServiceProcess service_{ZAM_CONNECTORD};
};

using ReadPolicy = ExampleProgram;

TEST_F(ReadPolicy, PrintsTheHashAndTheTree) {
    service_.WriteData("policy.json",
                       R"({"update": {"allowed": true, "hours": [{"$uint8": 2}, {"$uint8": 5}]},
                           "until": {"$time": 7}, "empty": {}, "raw": {"$blob": "AH//"}})");
    service_.Start();
    EXPECT_EQ(Out(READ_POLICY),
              "hash 0x5d3c9d3a149986f6\n"
              "empty: {}\n"
              "raw: blob 007fff\n"
              "until: timestamp 7\n"
              "update:\n"
              "  allowed: true\n"
              "  hours:\n"
              "    [0]: uint8 2\n"
              "    [1]: uint8 5\n");
}

TEST_F(ReadPolicy, PrintsAPolicyThatIsNoMap) {
    service_.WriteData("policy.json", "[null]");
    service_.Start();
    EXPECT_THAT(Out(READ_POLICY), ::testing::EndsWith("\n[0]: none\n"));
}

TEST_F(ReadPolicy, SaysThatThereIsNone) {
    service_.Start();
    EXPECT_EQ(Out(READ_POLICY), "no policy\n");
}

TEST_F(ReadPolicy, FailsWithoutAService) {
    const ProgramResult result = Run(READ_POLICY);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("read_policy: cannot make a connector: Unspecified error\n"));
}

using ObserveChanges = ExampleProgram;

TEST_F(ObserveChanges, PrintsChangesAndEndsBehindAsManyAsWereAskedFor) {
    service_.WriteData("connection.json", R"({"start": [{"state": "refused"}]})");
    service_.Start();
    RunningProgram observe(OBSERVE_CHANGES, {"2"}, Environment());
    ASSERT_EQ(observe.OutLine(), "observing");
    service_.WriteData("policy.json", R"({"update": {"allowed": false}})");
    EXPECT_EQ(observe.OutLine(), R"(policy {"update": {"allowed": false}})");

    EXPECT_EQ(RunProgram(ZAMCTL, {"start", "--server", "server.example", "--port", "1"},
                         {.environment = Environment()})
                  .status,
              0);
    EXPECT_EQ(observe.OutLine(), "state refused");
    EXPECT_EQ(observe.Wait(), 0);
}

TEST_F(ObserveChanges, EndsAtASignal) {
    service_.Start();
    for (const int signal : {SIGINT, SIGTERM}) {
        RunningProgram observe(OBSERVE_CHANGES, {}, Environment());
        ASSERT_EQ(observe.OutLine(), "observing");
        observe.Signal(signal);
        EXPECT_EQ(observe.Wait(), 0) << signal;
        EXPECT_EQ(observe.OutLine(), "(nothing)");
    }
}

using SendUpdates = ExampleProgram;

TEST_F(SendUpdates, SendsRecordsThatStandInTheDataFolder) {
    service_.Start();
    EXPECT_EQ(Out(SEND_UPDATES),
              "app info: No error\n"
              "settings: No error, hash 0xeff3189d9123dd84\n"
              "updates: No error, hash 0x3f6828af73c450b0\n");
    EXPECT_THAT(service_.ReadData("uploads/app_info.json"),
                HasSubstr(R"("product_version": "3.4.1")"));
    EXPECT_EQ(service_.ReadData("uploads/settings.json"),
              "{\n"
              "  \"log_level\": {\"$int32\": 2},\n"
              "  \"scan\": {\n"
              "    \"enabled\": true,\n"
              "    \"period_s\": 3600\n"
              "  }\n"
              "}\n");
    const std::string updates = service_.ReadData("uploads/updates.json");
    EXPECT_THAT(updates, HasSubstr(R"("updname": "Example 3.5")"));
    EXPECT_THAT(updates, HasSubstr(R"("installerrortext": "No space left on device")"));
}

TEST_F(SendUpdates, FailsWhenOneOfThemIsRefused) {
    service_.WriteData("faults.json", R"({"rules": [
        {"endpoint": "productDataHolder", "operation": "SetAppInfo",
         "result_code": "0x80000045"}]})");
    service_.Start();
    const ProgramResult result = Run(SEND_UPDATES);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out,
              "app info: Access denied\n"
              "settings: No error, hash 0xeff3189d9123dd84\n"
              "updates: No error, hash 0x3f6828af73c450b0\n");
}

class DownloadFile : public ExampleProgram {
protected:
    static constexpr char kSha256[] =
        "02675bf9284bd74223e98ceea96ebee4c9a469272ead358f462d89753f8c909b";

    DownloadFile() {
        for (std::size_t i = 0; i < 150000; ++i) {
            content_ += static_cast<char>(i % 251);
        }
        service_.WriteData("files/guide.bin", content_);
    }

    /// What happens to chunks: the rest of a rule of `faults.json`.
    void Damage(const std::string& rule) {
        service_.WriteData(
            "faults.json",
            R"({"rules": [{"endpoint": "fileDownloader", "operation": "GetFileChunk", )" + rule +
                "}]}");
    }

    std::string Target() const { return service_.DataDirectory() + "/fetched"; }

    std::string Fetched() const { return service_.ReadData("fetched"); }

    /// What fails leaves neither the file nor a part of it.
    void ExpectNothing() const {
        EXPECT_FALSE(fs::exists(Target()));
        EXPECT_FALSE(fs::exists(Target() + ".part"));
    }

    std::string content_;
};

TEST_F(DownloadFile, WritesTheFileAndTellsItsDigest) {
    service_.Start();
    EXPECT_EQ(Out(DOWNLOAD_FILE, {"guide.bin", Target()}),
              "65536 of 150000 bytes\n"
              "131072 of 150000 bytes\n"
              "150000 of 150000 bytes\n" +
                  std::string(kSha256) + "  " + Target() + '\n');
    EXPECT_EQ(Fetched(), content_);
    EXPECT_FALSE(fs::exists(Target() + ".part"));
}

TEST_F(DownloadFile, FetchesADamagedChunkOnceMore) {
    Damage(R"("calls": 2, "damage": "chunk_data")");
    service_.Start();
    EXPECT_THAT(Out(DOWNLOAD_FILE, {"guide.bin", Target()}),
                HasSubstr("damaged at 65536, once more\n131072 of 150000 bytes\n"));
    EXPECT_EQ(Fetched(), content_);
}

TEST_F(DownloadFile, GivesUpWhenAChunkIsDamagedEveryTime) {
    Damage(R"("damage": "chunk_data")");
    service_.Start();
    const ProgramResult result = Run(DOWNLOAD_FILE, {"guide.bin", Target()});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "download_file: guide.bin: what comes is damaged every time\n");
    ExpectNothing();
}

TEST_F(DownloadFile, JoinsNoPiecesOfTwoContents) {
    Damage(R"("calls": 2, "damage": "chunk_version")");
    service_.Start();
    const ProgramResult result = Run(DOWNLOAD_FILE, {"guide.bin", Target()});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "download_file: guide.bin: the file has changed meanwhile\n");
    ExpectNothing();
}

TEST_F(DownloadFile, FailsForAFileThatIsNotThere) {
    service_.Start();
    const ProgramResult result = Run(DOWNLOAD_FILE, {"other.bin", Target()});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "download_file: other.bin: cannot describe the file: Not found\n");
    ExpectNothing();
}

TEST_F(DownloadFile, FailsWhenItCannotWrite) {
    service_.Start();
    const ProgramResult result = Run(DOWNLOAD_FILE, {"guide.bin", Target() + "/in/no/folder"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "download_file: guide.bin: cannot write the file\n");
}

}  // namespace
