#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "channels/channel_table.h"
#include "daemon_fixture.h"
#include "data/content_hash.h"
#include "data/sample_data.h"
#include "data_client.h"
#include "support/eventually.h"
#include "support/real_connection.h"
#include "tree_json/tree_json.h"

namespace zam_service {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using zam_connector::test::RealConnection;
using zam_service::testing::DataClient;
using zam_service::testing::Flattened;
using zam_service::testing::Ids;
using zam_service::testing::Piece;
using zam_test::Eventually;

class DataProviderTest : public zam_service::testing::DaemonFixture {
protected:
    /// So many identifiers, each of its own.
    static std::string IdList(unsigned count) {
        std::string list;
        for (unsigned number = 0; number < count; ++number) {
            list += fmt::format("{}\"{:032x}\"", number == 0 ? "" : ",", number);
        }
        return "[" + list + "]";
    }
};

TEST_F(DataProviderTest, ServesAbsentDataWithoutHashes) {
    Begin();
    DataClient client;
    EXPECT_EQ(client.PolicyHash(), kAbsentHash);
    EXPECT_EQ(client.SettingsHash(), kAbsentHash);
    EXPECT_EQ(client.SubscriptionHash(), kAbsentHash);
    EXPECT_EQ(client.UpdatesHash(), kAbsentHash);
    EXPECT_EQ(client.SyncedSettingsHash(), kAbsentHash);
    const std::int64_t channel = client.OpenPolicy();
    const Piece piece = client.GetData(channel);
    EXPECT_EQ(piece.status, 1);
    EXPECT_EQ(piece.records, Flattened(zuv::TValue()));
    EXPECT_EQ(client.GetHash(channel), std::pair(0, kAbsentHash));
    EXPECT_EQ(client.GetResult(channel), std::pair(0, 0));
    EXPECT_EQ(client.Close(channel), 0);
}

TEST_F(DataProviderTest, ServesWhatStandsInTheFolder) {
    WriteSample(data_.Path());
    Begin();
    RealConnection connection;
    auto& provider = connection.DataProvider();
    std::pair<unsigned long, zam_connector::ZamPolicy> policy;
    EXPECT_EQ(provider.GetPolicy(policy), 0);
    EXPECT_TRUE(policy.second.tree.IsIdenticalTo(
        zam_connector::tree_json::Read(data_.Read("policy.json"))));
    EXPECT_EQ(policy.first, HashOf(policy.second.tree));
    std::pair<unsigned long, zam_connector::ZamProductSettings> settings;
    EXPECT_EQ(provider.GetProductSettings(settings), 0);
    EXPECT_TRUE(settings.second.tree.IsIdenticalTo(
        zam_connector::tree_json::Read(data_.Read("product_settings.json"))));
    std::pair<unsigned long, zam_connector::ZamSubscriptions> subscriptions;
    EXPECT_EQ(provider.GetSubscriptions(subscriptions), 0);
    EXPECT_EQ(subscriptions.second.events.at("usage").maxDelay.count(), 3600U);
    zam_connector::ZamServerData server;
    EXPECT_EQ(provider.GetZamServerData(server), 0);
    EXPECT_EQ(server.deviceStatus, zam_connector::ZamDeviceStatus::Managed);
    EXPECT_EQ(server.versionMajor, 14);
    std::string cert;
    EXPECT_EQ(provider.GetZamReserveCert(cert), 0);
    EXPECT_EQ(cert, data_.Read("reserve_cert.pem"));
    std::pair<unsigned long, zam_connector::ZamUpdatesStatus> updates;
    EXPECT_EQ(provider.GetZamUpdatesStatus(updates), 0);
    EXPECT_THAT(updates.second.approved, SizeIs(1));
    EXPECT_THAT(updates.second.declined, SizeIs(1));
    EXPECT_THAT(updates.second.revoked, IsEmpty());
    unsigned long hash = 0;
    EXPECT_EQ(provider.GetPolicyHash(hash), 0);
    EXPECT_EQ(hash, policy.first);
    EXPECT_EQ(provider.GetSettingsHash(hash), 0);
    EXPECT_EQ(hash, settings.first);
    EXPECT_EQ(provider.GetSubscriptionHash(hash), 0);
    EXPECT_EQ(hash, subscriptions.first);
    EXPECT_EQ(provider.GetZamUpdatesStatusHash(hash), 0);
    EXPECT_EQ(hash, updates.first);
    EXPECT_THAT(logger_.Records(), IsEmpty()) << "the sample is loaded without a complaint";
}

TEST_F(DataProviderTest, KeepsHashesAcrossARestart) {
    data_.Write("policy.json", R"({"a": 1})");
    Begin();
    const std::uint64_t hash = DataClient().PolicyHash();
    End();
    data_.Write("policy.json", R"({ "a" : 1 })");
    Begin();
    EXPECT_EQ(DataClient().PolicyHash(), hash);
}

TEST_F(DataProviderTest, GoesOnWithTheVersionThatATransferBeganWith) {
    zuv::Map map;
    map["text"] = std::string(600'000, 'x');
    map["more"] = std::string(600'000, 'y');
    const zuv::TValue tree(std::move(map));
    data_.Write("policy.json", zam_connector::tree_json::Write(tree));
    Begin();
    DataClient client;
    const std::uint64_t before = client.PolicyHash();
    const std::int64_t channel = client.OpenPolicy();
    Piece first = client.GetData(channel);
    EXPECT_EQ(first.status, 0);
    data_.Write("policy.json", R"({"text": "new"})");
    ASSERT_TRUE(Eventually([&] { return client.PolicyHash() != before; }));
    const Piece second = client.GetData(channel);
    EXPECT_EQ(second.status, 1);
    first.records.insert(first.records.end(), second.records.begin(), second.records.end());
    EXPECT_EQ(first.records, Flattened(tree));
    EXPECT_EQ(client.GetHash(channel), std::pair(0, before));
    EXPECT_EQ(client.Close(channel), 0);
}

TEST_F(DataProviderTest, KeepsTheLastGoodVersionAndNamesThePlaceOfWhatIsWrong) {
    data_.Write("policy.json", R"({"a": 1})");
    Begin();
    DataClient client;
    const std::uint64_t hash = client.PolicyHash();
    data_.Write("policy.json", "{\n  \"1\": 1}");
    EXPECT_TRUE(Eventually([&] {
        return HasLogged("policy.json:2:3: at \"/1\": the key cannot be sent") &&
               HasLogged("the last good version stays");
    }));
    EXPECT_EQ(client.PolicyHash(), hash);
    fs::remove(data_.Path("policy.json"));
    EXPECT_TRUE(Eventually([&] { return client.PolicyHash() == kAbsentHash; }));
}

TEST_F(DataProviderTest, AnswersEveryOperationOnAnUnknownChannelWithAFailure) {
    Begin();
    DataClient client;
    const auto [updates, hash] = client.OpenUpdatesStatus();
    for (const std::int64_t channel : {std::int64_t{0}, std::int64_t{-1}, updates}) {
        EXPECT_EQ(client.GetData(channel).status, -1);
        EXPECT_EQ(client.GetHash(channel).first, -1);
        EXPECT_EQ(client.GetResult(channel).first, -1);
        EXPECT_EQ(client.Close(channel), -1);
    }
    const std::int64_t policy = client.OpenPolicy();
    for (const std::int64_t channel : {std::int64_t{0}, policy}) {
        EXPECT_EQ(client.GetUpdatesStatus(channel, 0).status, -1);
        EXPECT_EQ(client.CloseUpdatesStatus(channel), -1);
    }
    EXPECT_TRUE(HasLogged("the client has no updates status channel"));
    EXPECT_EQ(client.Close(policy), 0);
    EXPECT_EQ(client.Close(policy), -1) << "it is closed";
}

TEST_F(DataProviderTest, HasNothingBehindTheLastPiece) {
    Begin();
    DataClient client;
    const std::int64_t channel = client.OpenSettings();
    EXPECT_EQ(client.GetData(channel).status, 1);
    const Piece behind = client.GetData(channel);
    EXPECT_EQ(behind.status, 1);
    EXPECT_THAT(behind.records, IsEmpty());
}

TEST_F(DataProviderTest, HandsOutIdentifiersByTenAndMarksTheEndApart) {
    for (const unsigned count : {0U, 1U, 9U, 10U, 11U, 25U}) {
        data_.Write("updates_status.json", "{\"declined\": " + IdList(count) + "}");
        Begin();
        DataClient client;
        const std::int64_t channel = client.OpenUpdatesStatus().first;
        for (unsigned taken = 0; taken < count; taken += 10) {
            const Ids some = client.GetUpdatesStatus(channel, 1);
            EXPECT_EQ(some.status, 0);
            EXPECT_THAT(some.ids, SizeIs(std::min(10U, count - taken)));
        }
        for (int again = 0; again < 2; ++again) {
            const Ids end = client.GetUpdatesStatus(channel, 1);
            EXPECT_EQ(end.status, 1) << count;
            EXPECT_THAT(end.ids, IsEmpty());
        }
        EXPECT_EQ(client.GetUpdatesStatus(channel, 3).status, -1);
        EXPECT_TRUE(HasLogged("there is no list of the kind 3, only 0 to 2"));
        EXPECT_EQ(client.CloseUpdatesStatus(channel), 0);
        End();
    }
}

TEST_F(DataProviderTest, GivesTheResultThatGoesWithTheData) {
    data_.Write("policy.json", R"({"a": 1})");
    data_.Write("server_data.json", R"({"policy_result": "0x80000045", "settings_result": 1})");
    Begin();
    RealConnection connection;
    std::pair<unsigned long, zam_connector::ZamPolicy> policy;
    EXPECT_EQ(connection.DataProvider().GetPolicy(policy), static_cast<int>(0x80000045U));
    EXPECT_NE(policy.second.tree.Find("a"), nullptr) << "the data comes all the same";
    std::pair<unsigned long, zam_connector::ZamProductSettings> settings;
    EXPECT_EQ(connection.DataProvider().GetProductSettings(settings), 1);
}

TEST_F(DataProviderTest, RefusesACertificateThatIsTooLarge) {
    const std::string largest(16384, 'c');
    data_.Write("reserve_cert.pem", largest);
    Begin();
    RealConnection connection;
    std::string cert;
    EXPECT_EQ(connection.DataProvider().GetZamReserveCert(cert), 0);
    EXPECT_EQ(cert, largest);
    data_.Write("reserve_cert.pem", largest + "c");
    EXPECT_TRUE(Eventually([&] {
        return HasLogged("reserve_cert.pem: has 16385 bytes, more than the 16384 allowed");
    }));
    EXPECT_EQ(connection.DataProvider().GetZamReserveCert(cert), 0);
    EXPECT_EQ(cert, largest);
}

TEST_F(DataProviderTest, DropsTheOldestChannelOfAClientThatOpensTooMany) {
    Begin();
    DataClient client;
    const std::int64_t oldest = client.OpenPolicy();
    for (std::size_t count = 1; count < ChannelLimits().perClient; ++count) {
        client.OpenPolicy();
    }
    EXPECT_EQ(client.GetHash(oldest).first, 0);
    client.OpenPolicy();
    EXPECT_EQ(client.GetHash(oldest).first, -1);
}

}  // namespace
}  // namespace zam_service
