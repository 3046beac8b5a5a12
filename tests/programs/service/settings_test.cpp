#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <future>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "data/settings_json.h"
#include "data/settings_store.h"
#include "lanes.h"
#include "result_codes.h"
#include "run_until.h"
#include "support/temporary_folder.h"
#include "zam_connector_testing/recording_logger.h"

namespace zam_service {
namespace {

using zam_connector::ZamConnectorSettings;
using zam_connector::ZamSeconds;
using zam_json::JsonDocument;
using zam_json::JsonError;
using zam_service::testing::RunUntil;
using zam_test::TemporaryFolder;

ZamConnectorSettings SettingsOf(const std::string& text) {
    const JsonDocument document(kSettingsFile, text);
    return ReadSettings(document.Root());
}

ZamConnectorSettings Everything() {
    ZamConnectorSettings settings;
    settings.syncPeriod = ZamSeconds(1);
    settings.heartbeatPeriod = ZamSeconds(2);
    settings.reconnectDelayMin = ZamSeconds(3);
    settings.reconnectDelayMax = ZamSeconds(4);
    settings.uploadLimitBytesPerSecond = 5;
    settings.downloadLimitBytesPerSecond = 6;
    settings.maxFileSizeBytes = 7;
    settings.eventQueueLimit = 8;
    settings.compressTraffic = false;
    settings.allowMeteredNetwork = true;
    settings.sendDiagnostics = true;
    return settings;
}

TEST(Settings, OfAnEmptyFileAreTheDefault) {
    EXPECT_EQ(SettingsOf("{}"), ZamConnectorSettings());
}

TEST(Settings, KeepEveryFieldInItsPlace) {
    EXPECT_EQ(SettingsOf(R"({
        "sync_period_s": 1, "heartbeat_period_s": 2, "reconnect_delay_min_s": 3,
        "reconnect_delay_max_s": 4, "upload_limit_bytes_per_second": 5,
        "download_limit_bytes_per_second": 6, "max_file_size_bytes": 7,
        "event_queue_limit": 8, "compress_traffic": false, "allow_metered_network": true,
        "send_diagnostics": true})"),
              Everything());
}

TEST(Settings, ReadBackAsTheyWereWritten) {
    ZamConnectorSettings most;
    most.syncPeriod = most.heartbeatPeriod = most.reconnectDelayMin = most.reconnectDelayMax =
        ZamSeconds::max();
    most.uploadLimitBytesPerSecond = most.downloadLimitBytesPerSecond = most.maxFileSizeBytes =
        std::numeric_limits<std::uint64_t>::max();
    most.eventQueueLimit = std::numeric_limits<std::uint32_t>::max();
    for (const ZamConnectorSettings& settings : {ZamConnectorSettings(), Everything(), most}) {
        EXPECT_EQ(SettingsOf(WriteSettings(settings)), settings) << WriteSettings(settings);
    }
}

TEST(Settings, HaveTheBoundsOfTheirFields) {
    struct Row {
        std::string name;
        std::string most;
        std::string beyond;
    };
    const std::string most32 = "4294967295";
    const std::string most64 = "18446744073709551615";
    for (const Row& row : {Row{"sync_period_s", most32, "4294967296"},
                           Row{"heartbeat_period_s", most32, "4294967296"},
                           Row{"reconnect_delay_max_s", most32, "4294967296"},
                           Row{"event_queue_limit", most32, "4294967296"},
                           Row{"upload_limit_bytes_per_second", most64, "18446744073709551616"},
                           Row{"download_limit_bytes_per_second", most64, "18446744073709551616"},
                           Row{"max_file_size_bytes", most64, "18446744073709551616"}}) {
        const std::string head = "{\"" + row.name + "\": ";
        EXPECT_NO_THROW(SettingsOf(head + row.most + "}")) << row.name;
        for (const std::string& wrong : {row.beyond, std::string("-1"), std::string("1.5"),
                                         std::string("\"1\""), std::string("true")}) {
            try {
                SettingsOf(head + wrong + "}");
                ADD_FAILURE() << "accepted: " << row.name << " " << wrong;
            } catch (const JsonError& error) {
                EXPECT_EQ(error.Pointer(), "/" + row.name);
                EXPECT_THAT(error.what(), ::testing::HasSubstr("is " + wrong +
                                                               ", allowed is a "
                                                               "whole number from 0 to " +
                                                               row.most));
            }
        }
    }
    for (const char* const name :
         {"compress_traffic", "allow_metered_network", "send_diagnostics"}) {
        EXPECT_THROW(SettingsOf("{\"" + std::string(name) + "\": 1}"), JsonError) << name;
    }
    EXPECT_THROW(SettingsOf(R"({"sync_period": 1})"), JsonError);
}

TEST(Settings, RefuseASmallestDelayAboveTheLargest) {
    EXPECT_NO_THROW(SettingsOf(R"({"reconnect_delay_min_s": 7, "reconnect_delay_max_s": 8})"));
    EXPECT_NO_THROW(SettingsOf(R"({"reconnect_delay_min_s": 8, "reconnect_delay_max_s": 8})"));
    const std::vector<std::pair<std::string, std::string>> rows = {
        {R"({"reconnect_delay_max_s": 8, "reconnect_delay_min_s": 9})", "/reconnect_delay_min_s"},
        {R"({"reconnect_delay_min_s": 301})", "/reconnect_delay_min_s"},
        {R"({"reconnect_delay_max_s": 4})", "/reconnect_delay_max_s"}};
    for (const auto& [text, pointer] : rows) {
        try {
            SettingsOf(text);
            ADD_FAILURE() << "accepted: " << text;
        } catch (const JsonError& error) {
            EXPECT_EQ(error.Pointer(), pointer) << text;
        }
    }
}

class SettingsStoreTest : public ::testing::Test {
protected:
    std::optional<int> Set(const ZamConnectorSettings& settings) {
        std::optional<int> code;
        store_.Set(::geteuid(), settings, [&](int told) { code = told; });
        RunUntil(loop_, [&] { return code.has_value(); });
        return code;
    }

    TemporaryFolder folder_;
    FolderFiles files_{folder_.Path()};
    asio::io_context loop_;
    zam_platform::WorkerPool workers_{2, kLaneCount, 4};
    SettingsStore store_{loop_, workers_, files_};
};

TEST_F(SettingsStoreTest, WritesTheFileBeforeItAnswers) {
    EXPECT_EQ(Set(Everything()), kNoError);
    EXPECT_EQ(store_.Current(), Everything());
    EXPECT_EQ(SettingsOf(folder_.Read(kSettingsFile)), Everything());
}

TEST_F(SettingsStoreTest, LeavesTheSettingsInForceWhenTheFileCannotBeWritten) {
    const zam_connector::testing::RecordingLogger logger;
    std::filesystem::create_directory(folder_.Path(kSettingsFile));
    EXPECT_EQ(Set(Everything()), kMediaError);
    EXPECT_EQ(store_.Current(), ZamConnectorSettings());
    ASSERT_EQ(logger.Records().size(), 1U);
    EXPECT_EQ(logger.Records()[0].level, 4);
    for (const auto& entry : std::filesystem::directory_iterator(folder_.Path())) {
        EXPECT_EQ(entry.path().filename(), kSettingsFile) << "an unfinished file was left";
    }
}

TEST_F(SettingsStoreTest, RefusesWhenEveryWorkerIsTaken) {
    std::promise<void> release;
    const std::shared_future<void> released = release.get_future().share();
    for (int job = 0; job < 4; ++job) {
        ASSERT_TRUE(workers_.Post(kReadLane, [released] { released.wait(); }));
    }
    std::optional<int> code;
    store_.Set(::geteuid(), Everything(), [&](int told) { code = told; });
    EXPECT_EQ(code, kInsufficientResources);
    release.set_value();
    workers_.Finish();
    EXPECT_EQ(store_.Current(), ZamConnectorSettings());
}

TEST_F(SettingsStoreTest, EndsWithTheLastOfManyInMemoryAndOnDisk) {
    std::vector<int> codes;
    ZamConnectorSettings settings;
    for (std::uint32_t period = 1; period <= 4; ++period) {
        settings.syncPeriod = ZamSeconds(period);
        store_.Set(period, settings, [&, settings](int code) {
            codes.push_back(code);
            EXPECT_EQ(store_.Current(), settings);
        });
    }
    ASSERT_TRUE(RunUntil(loop_, [&] { return codes.size() == 4; }));
    EXPECT_EQ(codes, std::vector<int>(4, kNoError));
    EXPECT_EQ(SettingsOf(folder_.Read(kSettingsFile)), settings);
}

}  // namespace
}  // namespace zam_service
