#include "zam_connector_testing/in_process_service.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

#include "zam_connector/zam_connector.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_connector::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;

class InProcess : public ::testing::Test {
protected:
    InProcess() { ::setenv("ZAM_RUNTIME_DIR", service_.RuntimeDirectory().c_str(), 1); }

    static std::shared_ptr<IZamConnector> Connect() {
        std::shared_ptr<IZamConnector> connector;
        EXPECT_EQ(CreateZamConnector(connector, {}), 0);
        return connector;
    }

    RecordingLogger logger_{zor::logger::kLevelError};
    InProcessService service_;
};

TEST_F(InProcess, ServesWhileItRuns) {
    EXPECT_FALSE(service_.IsRunning());
    std::shared_ptr<IZamConnector> connector;
    EXPECT_NE(CreateZamConnector(connector, {}), 0);

    service_.Start();
    service_.Start();
    EXPECT_TRUE(service_.IsRunning());
    EXPECT_NE(Connect(), nullptr);

    service_.Stop();
    service_.Stop();
    EXPECT_FALSE(service_.IsRunning());
    EXPECT_NE(CreateZamConnector(connector, {}), 0);
}

TEST_F(InProcess, KeepsItsDataAndServesItsClientsAgainAfterARestart) {
    service_.WriteData("policy.json", R"({"a": 1})");
    service_.Start();
    const auto connector = Connect();
    std::shared_ptr<IZamDataProvider> provider;
    ASSERT_EQ(connector->GetDataProvider(provider), 0);
    unsigned long before = 0;
    EXPECT_EQ(provider->GetPolicyHash(before), 0);
    std::shared_ptr<IZamConnCommandSender> sender;
    ASSERT_EQ(connector->GetCommandSender(sender), 0);
    EXPECT_EQ(sender->PostZamEvent("first"), 0);

    service_.Restart();
    unsigned long after = 0;
    EXPECT_EQ(provider->GetPolicyHash(after), 0);
    EXPECT_EQ(after, before);
    EXPECT_THAT(service_.ReadData("uploads/history.jsonl"), HasSubstr("first"));
}

TEST_F(InProcess, WritesIntoFoldersThatItMakes) {
    service_.WriteData("files/deep/name", "content");
    EXPECT_EQ(service_.ReadData("files/deep/name"), "content");
    EXPECT_THAT(service_.ReadData("nothing"), IsEmpty());
    EXPECT_EQ(std::filesystem::path(service_.DataDirectory()).parent_path(),
              std::filesystem::path(service_.RuntimeDirectory()).parent_path());
}

TEST_F(InProcess, SaysWhyItCannotStart) {
    std::filesystem::permissions(service_.RuntimeDirectory(), std::filesystem::perms::all);
    try {
        service_.Start();
        FAIL() << "started";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), HasSubstr("lets others write"));
    }
    EXPECT_FALSE(service_.IsRunning());
}

TEST_F(InProcess, LogsToTheLoggerOfTheProcess) {
    service_.WriteData("policy.json", "{");
    service_.Start();
    ASSERT_FALSE(logger_.Records().empty());
    EXPECT_THAT(logger_.Records().front().text, HasSubstr("policy.json:1:"));
}

TEST(InProcessService, RemovesItsFolders) {
    std::string folder;
    {
        InProcessService service;
        service.Start();
        folder = std::filesystem::path(service.DataDirectory()).parent_path();
        EXPECT_TRUE(std::filesystem::exists(folder));
    }
    EXPECT_FALSE(std::filesystem::exists(folder));
}

TEST(InProcessService, CanBeThereTwice) {
    InProcessService first;
    InProcessService second;
    first.Start();
    second.Start();
    EXPECT_NE(first.RuntimeDirectory(), second.RuntimeDirectory());
}

}  // namespace
}  // namespace zam_connector::testing
