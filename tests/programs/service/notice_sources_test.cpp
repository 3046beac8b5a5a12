#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "daemon_fixture.h"
#include "data_client.h"
#include "raw_notifier.h"
#include "result_codes.h"

namespace zam_service {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using zam_service::testing::Client;
using zam_service::testing::Code;
using zam_service::testing::DataClient;
using zam_service::testing::Flattened;
using zam_service::testing::Parameters;
using zam_service::testing::RawNotifier;
using zam_service::testing::Value;

/// Where notices come from.
class NoticeSourcesTest : public zam_service::testing::DaemonFixture {
protected:
    /// The kinds told since this was asked last. A file that changes now ends them: what is to be
    /// told before it has been told by then.
    std::vector<std::uint32_t> Kinds(RawNotifier& client, std::uint32_t id) {
        // Each lane reads in its order, so a marker in both of them is behind everything.
        const std::string next = std::to_string(++marker_);
        data_.Write("product_settings.json", next);
        std::vector<std::uint32_t> kinds;
        for (std::uint32_t kind = client.Wait(id).value; kind != 2; kind = client.Wait(id).value) {
            kinds.push_back(kind);
        }
        data_.Write("subscriptions.json", R"({"events": {"e": {"max_delay_s": )" + next + "}}}");
        for (std::uint32_t kind = client.Wait(id).value; kind != 3; kind = client.Wait(id).value) {
            kinds.push_back(kind);
        }
        return kinds;
    }

    RawNotifier Data() const { return {daemon_->SocketPath(), "ZamDataNotifier", 1}; }

    int marker_ = 0;
};

TEST_F(NoticeSourcesTest, AreTheFilesOfTheDataFolderWhenTheyMeanSomethingElse) {
    struct Row {
        const char* file;
        const char* first;
        const char* same;  ///< other bytes, or the same once more
        const char* other;
        std::uint32_t kind;
    };
    const Row rows[] = {
        {"policy.json", R"({"a": 1, "b": 2})", R"({"b": 2, /* same */ "a": 1})", R"({"a": 1})", 1},
        {"server_data.json", R"({"version_major": 1})",
         R"({"version_major": 1, "version_minor": 0})", R"({"version_major": 2})", 4},
        {"server_data.json", R"({"policy_result": 1})", R"({"policy_result": "0x1"})",
         R"({"policy_result": 2})", 4},
        {"reserve_cert.pem", "one", "one", "two", 5},
        {"updates_status.json", R"({"approved": []})", "{}",
         R"({"approved": ["00112233445566778899aabbccddeeff"]})", 6},
    };
    Begin();
    RawNotifier client = Data();
    const std::uint32_t id = client.Register();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.file);
        data_.Write(row.file, row.first);
        EXPECT_THAT(Kinds(client, id), ElementsAre(row.kind)) << row.first;
        data_.Write(row.file, row.same);
        EXPECT_THAT(Kinds(client, id), ElementsAre()) << row.same;
        data_.Write(row.file, row.other);
        EXPECT_THAT(Kinds(client, id), ElementsAre(row.kind)) << row.other;
        data_.Write(row.file, std::string(20'000, '{'));
        EXPECT_THAT(Kinds(client, id), ElementsAre()) << "it cannot be served";
        fs::remove(data_.Path(row.file));
        client.Ask(id);
        EXPECT_EQ(client.Read(), Value(row.kind)) << "gone";
    }
    data_.Write("faults.json", R"({"rules": []})");
    data_.Write("uploads", "");
    EXPECT_THAT(Kinds(client, id), ElementsAre());
}

TEST_F(NoticeSourcesTest, TellOnceOfAnEditThatMovesTheOldFileAway) {
    data_.Write("policy.json", "1");
    Begin();
    RawNotifier client = Data();
    const std::uint32_t id = client.Register();
    const DataClient data;
    fs::rename(data_.Path("policy.json"), data_.Path("policy.json~"));
    data_.Write("policy.json", "2");
    fs::remove(data_.Path("policy.json~"));
    EXPECT_THAT(Kinds(client, id), ElementsAre(1));

    fs::rename(data_.Path("policy.json"), data_.Path("policy.json~"));
    fs::rename(data_.Path("policy.json~"), data_.Path("policy.json"));
    EXPECT_THAT(Kinds(client, id), ElementsAre()) << "it is what it was";
}

TEST_F(NoticeSourcesTest, AreUploadedSettingsAlsoWhenTheyEqualThoseBefore) {
    Begin();
    RawNotifier client = Data();
    const std::uint32_t id = client.Register();
    DataClient data;
    for (int upload = 0; upload < 2; ++upload) {
        const std::int64_t channel = data.OpenSetSettings();
        ASSERT_EQ(data.Send(channel, Flattened(zuv::Map{{"a", 1L}})), 0);
        const auto closed = data.CloseUpload(channel);
        ASSERT_EQ(closed.code, kNoError);
        EXPECT_THAT(Kinds(client, id), ElementsAre(7));
        EXPECT_EQ(data.SyncedSettingsHash(), closed.hash);
    }
    const std::int64_t eulas = data.OpenEulas();
    ASSERT_EQ(data.Send(eulas, Flattened(zuv::Map{{"a", 1L}})), 0);
    EXPECT_EQ(data.CloseUpload(eulas).code, kNoError);
    EXPECT_THAT(Kinds(client, id), ElementsAre()) << "no settings";
}

TEST_F(NoticeSourcesTest, AreTheStatesOfTheLinkInTheirOrder) {
    BeginFast();
    RawNotifier client(daemon_->SocketPath(), "ConnStateNotifier", 1);
    const std::uint32_t id = client.Register();
    Client controller;
    ASSERT_EQ(controller.Start(Parameters()), Code(kNoError));
    ASSERT_EQ(controller.Stop(), Code(kNoError));
    ASSERT_EQ(controller.Start(Parameters()), Code(kNoError));
    // Connecting, connected, stopping, stopped; then the first two again.
    for (const std::uint32_t state : {1U, 2U, 4U, 0U, 1U, 2U}) {
        EXPECT_EQ(client.Wait(id), Value(state));
    }
}

}  // namespace
}  // namespace zam_service
