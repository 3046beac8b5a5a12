#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "common/arena.h"
#include "common/raw_zam_param_casts.h"
#include "daemon_fixture.h"
#include "data/content_hash.h"
#include "data_client.h"
#include "result_codes.h"
#include "support/eventually.h"
#include "support/real_connection.h"
#include "tree_json/tree_json.h"

namespace zam_service {
namespace {

namespace fs = std::filesystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using zam_connector::test::RealConnection;
using zam_service::testing::Closed;
using zam_service::testing::DataClient;
using zam_service::testing::Flattened;
using zam_service::testing::kRefused;
using zam_service::testing::RawList;
using zam_test::Eventually;

/// What a refused close answers.
class ProductDataTest : public zam_service::testing::DaemonFixture {
protected:
    static zuv::TValue Tree(long number) { return zuv::Map{{"number", number}, {"text", "t"}}; }

    /// Uploads a tree as settings in one piece.
    static Closed Upload(DataClient& client, const zuv::TValue& tree) {
        const std::int64_t channel = client.OpenSetSettings();
        EXPECT_EQ(client.Send(channel, Flattened(tree)), 0);
        return client.CloseUpload(channel);
    }

    zuv::TValue Stored(const std::string& name) const {
        return zam_connector::tree_json::Read(data_.Read("uploads/" + name), name);
    }
};

TEST_F(ProductDataTest, StoresATreeBeforeItAnswers) {
    Begin();
    DataClient client;
    const zuv::TValue tree = Tree(1);
    EXPECT_EQ(Upload(client, tree), (Closed{0, 0, HashOf(tree)}));
    EXPECT_TRUE(Stored("settings.json").IsIdenticalTo(tree));
    EXPECT_EQ(client.SyncedSettingsHash(), HashOf(tree));
    EXPECT_THAT(History("upload"), ElementsAre("upload settings"));
    EXPECT_THAT(History("hash"), ElementsAre(fmt::format("upload {:#018x}", HashOf(tree))));
    EXPECT_FALSE(fs::exists(data_.Path("uploads/.settings.json.new")));
}

TEST_F(ProductDataTest, StoresEveryKindInItsFile) {
    Begin();
    DataClient client;
    const std::int64_t eulas = client.OpenEulas();
    const std::int64_t updates = client.OpenUpdates();
    EXPECT_EQ(client.Send(eulas, Flattened(Tree(1))), 0);
    EXPECT_EQ(client.Send(updates, Flattened(Tree(2))), 0);
    EXPECT_EQ(client.CloseUpload(updates).code, 0);
    EXPECT_EQ(client.CloseUpload(eulas).code, 0);
    EXPECT_TRUE(Stored("eulas.json").IsIdenticalTo(Tree(1)));
    EXPECT_TRUE(Stored("updates.json").IsIdenticalTo(Tree(2)));
    EXPECT_EQ(client.SyncedSettingsHash(), kAbsentHash);
}

TEST_F(ProductDataTest, StoresANoneTreeOfAChannelWithoutAPiece) {
    Begin();
    DataClient client;
    const Closed closed = client.CloseUpload(client.OpenSetSettings());
    EXPECT_EQ(closed, (Closed{0, 0, HashOf(zuv::TValue())}));
    EXPECT_EQ(data_.Read("uploads/settings.json"), "null\n");
}

TEST_F(ProductDataTest, ReadsTheHashOfTheSettingsBackAtTheStart) {
    zuv::Vector vector;
    vector.emplace_back(-0.0);
    vector.emplace_back(zuv::Blob{1, 2});
    const zuv::TValue tree(zuv::Map{{"list", std::move(vector)}});
    Begin();
    {
        DataClient client;
        EXPECT_EQ(Upload(client, tree).hash, HashOf(tree));
    }
    End();
    Begin();
    EXPECT_EQ(DataClient().SyncedSettingsHash(), HashOf(tree));
    End();
    data_.Write("uploads/settings.json", "{torn");
    Begin();
    EXPECT_EQ(DataClient().SyncedSettingsHash(), kAbsentHash);
    EXPECT_THAT(logger_.Records().back().text, HasSubstr("settings.json':1:3"));
}

TEST_F(ProductDataTest, RefusesAnEmptyPieceAndWhatFollows) {
    Begin();
    DataClient client;
    ASSERT_EQ(Upload(client, Tree(1)).code, 0);
    const std::int64_t channel = client.OpenSetSettings();
    EXPECT_EQ(client.Send(channel, {}), -1);
    EXPECT_EQ(client.Send(channel, Flattened(Tree(2))), -1) << "a piece has failed";
    EXPECT_EQ(client.CloseUpload(channel), kRefused);
    EXPECT_TRUE(Stored("settings.json").IsIdenticalTo(Tree(1)));
    EXPECT_EQ(client.SyncedSettingsHash(), HashOf(Tree(1)));
}

TEST_F(ProductDataTest, DropsATransferThatFailedAtItsClientAndGivesTheHashOfWhatStays) {
    Begin();
    DataClient client;
    EXPECT_EQ(client.AbandonUpload(client.OpenSetSettings()), (Closed{0, 0, kAbsentHash}));
    EXPECT_FALSE(fs::exists(data_.Path("uploads/settings.json")));
    ASSERT_EQ(Upload(client, Tree(1)).code, 0);
    const std::int64_t channel = client.OpenSetSettings();
    EXPECT_EQ(client.Send(channel, Flattened(Tree(2))), 0);
    EXPECT_EQ(client.AbandonUpload(channel), (Closed{0, 0, HashOf(Tree(1))}));
    EXPECT_TRUE(Stored("settings.json").IsIdenticalTo(Tree(1)));
    EXPECT_EQ(client.SyncedSettingsHash(), HashOf(Tree(1)));
    EXPECT_THAT(History("upload"), ElementsAre("upload settings"));
    EXPECT_EQ(client.AbandonUpload(channel).status, -1) << "it is closed";

    const std::int64_t eulas = client.OpenEulas();
    EXPECT_EQ(client.AbandonUpload(eulas), (Closed{0, 0, kAbsentHash})) << "each kind has its own";
}

TEST_F(ProductDataTest, GivesTheHashThatStaysOfEveryKindAlsoBehindARestart) {
    const auto ofWhatStays = [](DataClient& client) {
        EXPECT_EQ(client.AbandonUpload(client.OpenEulas()), (Closed{0, 0, HashOf(Tree(3))}));
        EXPECT_EQ(client.AbandonUpload(client.OpenUpdates()), (Closed{0, 0, kAbsentHash}));
    };
    Begin();
    {
        DataClient client;
        const std::int64_t channel = client.OpenEulas();
        EXPECT_EQ(client.Send(channel, Flattened(Tree(3))), 0);
        EXPECT_EQ(client.CloseUpload(channel), (Closed{0, 0, HashOf(Tree(3))}));
        ofWhatStays(client);
    }
    End();
    Begin();
    DataClient client;
    ofWhatStays(client);
}

/// Its client is told what failed there, not that the service had found out.
TEST_F(ProductDataTest, DropsATransferThatFailedHereAsWell) {
    Begin();
    DataClient client;
    ASSERT_EQ(Upload(client, Tree(1)).code, 0);
    const std::int64_t channel = client.OpenSetSettings();
    EXPECT_EQ(client.Send(channel, {}), -1);
    EXPECT_EQ(client.AbandonUpload(channel), (Closed{0, 0, HashOf(Tree(1))}));
}

TEST_F(ProductDataTest, RefusesAVectorWithFewerElementsThanItsRecordAnnounced) {
    Begin();
    DataClient client;
    ASSERT_EQ(Upload(client, Tree(1)).code, 0);
    zuv::Vector vector;
    for (long number = 0; number < 3; ++number) {
        vector.emplace_back(number);
    }
    const zuv::TValue tree(zuv::Map{{"list", std::move(vector)}});
    RawList records = Flattened(tree);
    records.pop_back();
    const std::int64_t channel = client.OpenSetSettings();
    EXPECT_EQ(client.Send(channel, records), 0);
    EXPECT_EQ(client.CloseUpload(channel), kRefused);
    EXPECT_THAT(logger_.Records().back().text,
                HasSubstr("the vector at 'list/' has 2 elements of the 3 announced"));
    EXPECT_TRUE(Stored("settings.json").IsIdenticalTo(Tree(1)));
    EXPECT_EQ(Upload(client, tree).code, 0);
}

TEST_F(ProductDataTest, RefusesAPieceThatCannotBeRead) {
    Begin();
    DataClient client;
    const std::int64_t channel = client.OpenSetSettings();
    zam_connector::common::HeapArena arena(676000);
    qx_zam_connector_ProductDataHolder_SendData_req request{};
    request.channel = channel;
    request.params = zam_connector::common::CastToVd(Flattened(Tree(1)), arena.Get());
    request.params.records.length += 1;
    EXPECT_EQ(client.Send(request, arena.Get()), -1);
    EXPECT_EQ(client.CloseUpload(channel), kRefused);
    EXPECT_FALSE(fs::exists(data_.Path("uploads/settings.json")));
}

TEST_F(ProductDataTest, RefusesAListThatMakesNoTree) {
    Begin();
    DataClient client;
    ASSERT_EQ(Upload(client, Tree(1)).code, 0);
    const std::int64_t channel = client.OpenSetSettings();
    RawList records = Flattened(Tree(2));
    records.front().value.pop_back();
    EXPECT_EQ(client.Send(channel, records), 0) << "it crosses as it stands";
    EXPECT_EQ(client.CloseUpload(channel), kRefused);
    EXPECT_TRUE(Stored("settings.json").IsIdenticalTo(Tree(1)));
    EXPECT_THAT(logger_.Records().back().text,
                HasSubstr("settings upload refused: [RawZamParams] Insufficient raw data size"));
}

TEST_F(ProductDataTest, RefusesATreeTooDeepForItsFile) {
    zuv::TValue tree;
    for (std::size_t depth = 0; depth <= zam_connector::tree_json::kMaxDepth; ++depth) {
        zuv::Vector vector;
        vector.push_back(std::move(tree));
        tree = std::move(vector);
    }
    Begin();
    DataClient client;
    EXPECT_EQ(Upload(client, tree), kRefused);
}

TEST_F(ProductDataTest, RefusesATransferWithAPieceThatMetWithAFault) {
    const std::string effects[] = {R"("session_status": -3)",
                                   R"("session_status": 0)",
                                   R"("transport_status": 9)",
                                   R"("drop": true)",
                                   R"("transport_status": 9, "when": "after")",
                                   R"("drop": true, "when": "after")"};
    for (const std::string& effect : effects) {
        fs::remove_all(data_.Path("uploads"));
        BeginWithFault(
            R"({"endpoint": "productDataHolder", "operation": "SendData", "calls": 2, )" + effect +
            "}");
        DataClient client;
        ASSERT_EQ(Upload(client, Tree(1)).code, 0);
        const std::int64_t channel = client.OpenSetSettings();
        client.SendInVain(channel, Flattened(Tree(2)));
        EXPECT_EQ(client.CloseUpload(channel), kRefused) << effect;
        EXPECT_TRUE(Stored("settings.json").IsIdenticalTo(Tree(1))) << effect;
        End();
    }
}

TEST_F(ProductDataTest, TakesATransferWithAPieceThatWasOnlyLate) {
    BeginWithFault(R"({"endpoint": "productDataHolder", "operation": "SendData", "delay_ms": 1})");
    DataClient client;
    EXPECT_EQ(Upload(client, Tree(1)).code, 0);
}

TEST_F(ProductDataTest, AnswersAMediaErrorWhenTheDiskFails) {
    Begin();
    DataClient client;
    ASSERT_EQ(Upload(client, Tree(1)).code, 0);
    // A folder in the unfinished file's place can neither be removed nor opened.
    fs::create_directories(data_.Path("uploads/.settings.json.new/full"));
    EXPECT_EQ(Upload(client, Tree(2)), (Closed{0, kMediaError, kAbsentHash}));
    EXPECT_TRUE(Stored("settings.json").IsIdenticalTo(Tree(1)));
    EXPECT_EQ(client.SyncedSettingsHash(), HashOf(Tree(1)));
    EXPECT_THAT(History(), ElementsAre("upload"));
    fs::remove_all(data_.Path("uploads/.settings.json.new"));
    EXPECT_EQ(Upload(client, Tree(2)).code, 0);
}

TEST_F(ProductDataTest, AnswersAMediaErrorWhenThereCanBeNoFolder) {
    data_.Write("uploads", "no folder");
    Begin();
    DataClient client;
    EXPECT_EQ(Upload(client, Tree(1)).code, kMediaError);
    EXPECT_EQ(client.SetAppInfo({}), kMediaError);
    EXPECT_EQ(client.SetAppInfoDynamic({}), kMediaError);
}

TEST_F(ProductDataTest, AnswersAMediaErrorWhenTheHistoryCannotBeWritten) {
    fs::create_directories(data_.Path("uploads/history.jsonl"));
    Begin();
    DataClient client;
    EXPECT_EQ(Upload(client, Tree(1)), (Closed{0, kMediaError, kAbsentHash}));
}

TEST_F(ProductDataTest, RemovesWhatAnEarlierRunLeftUnfinished) {
    fs::create_directory(data_.Path("uploads"));
    data_.Write("uploads/.settings.json.new", "{");
    data_.Write("uploads/.app_info.json.new", "{");
    data_.Write("uploads/.mine.new", "stays");
    Begin();
    EXPECT_FALSE(fs::exists(data_.Path("uploads/.settings.json.new")));
    EXPECT_FALSE(fs::exists(data_.Path("uploads/.app_info.json.new")));
    EXPECT_TRUE(fs::exists(data_.Path("uploads/.mine.new")));
}

TEST_F(ProductDataTest, AnswersAnUnknownChannelWithAFailure) {
    Begin();
    DataClient client;
    EXPECT_EQ(client.Send(1, Flattened(Tree(1))), -1);
    EXPECT_EQ(client.CloseUpload(1).status, -1);
    const std::int64_t channel = client.OpenSetSettings();
    EXPECT_EQ(client.CloseUpload(channel).status, 0);
    EXPECT_EQ(client.CloseUpload(channel).status, -1) << "it is closed";
    EXPECT_EQ(client.Send(client.OpenPolicy(), Flattened(Tree(1))), -1) << "not for sending";
}

TEST_F(ProductDataTest, KeepsTransfersSideBySideApart) {
    Begin();
    DataClient client;
    const std::int64_t first = client.OpenSetSettings();
    const std::int64_t second = client.OpenSetSettings();
    const RawList one = Flattened(Tree(1));
    const RawList two = Flattened(Tree(2));
    for (std::size_t index = 0; index < one.size(); ++index) {
        EXPECT_EQ(client.Send(first, {one[index]}), 0);
        EXPECT_EQ(client.Send(second, {two[index]}), 0);
    }
    EXPECT_EQ(client.CloseUpload(first).hash, HashOf(Tree(1)));
    EXPECT_EQ(client.CloseUpload(second).hash, HashOf(Tree(2)));
    EXPECT_TRUE(Stored("settings.json").IsIdenticalTo(Tree(2)));
}

TEST_F(ProductDataTest, StoresApplicationInformationAsJson) {
    zam_connector::AppInfo info;
    info.productId = "product";
    info.hostName = "\xFF";
    info.components = {{"core", "1.2"}, {"\xFF", ""}};
    info.capabilities = {"files", "\xFF"};
    info.installTime = qor::types::Timestamp(-5);
    info.localeId = 4294967295;
    info.maxFileSizeBytes = 18446744073709551615U;
    Begin();
    DataClient client;
    EXPECT_EQ(client.SetAppInfo(info), 0);
    const auto json = nlohmann::json::parse(data_.Read("uploads/app_info.json"));
    EXPECT_EQ(json.size(), 24U);
    EXPECT_EQ(json.at("product_id"), "product");
    EXPECT_EQ(json.at("product_name"), "");
    EXPECT_EQ(json.at("host_name_base64"), "/w==");
    EXPECT_EQ(json.at("components"), nlohmann::json::parse(R"([{"name": "core", "version": "1.2"},
                                        {"name_base64": "/w==", "version": ""}])"));
    EXPECT_EQ(json.at("capabilities"), nlohmann::json::parse(R"(["files", {"base64": "/w=="}])"));
    EXPECT_EQ(json.at("install_time"), -5);
    EXPECT_EQ(json.at("locale_id"), 4294967295);
    EXPECT_EQ(json.at("max_file_size_bytes"), 18446744073709551615U);
    EXPECT_THAT(History("upload"), ElementsAre("upload app_info"));
}

TEST_F(ProductDataTest, StoresDynamicApplicationInformationAsJson) {
    zam_connector::DynamicAppInfo info;
    info.uptime = std::chrono::duration<std::uint32_t>(77);
    info.health = zam_connector::AppHealth::Degraded;
    info.rebootRequired = true;
    Begin();
    RealConnection connection;
    EXPECT_EQ(connection.ProductDataHolder().SetAppInfoDynamic(info), 0);
    EXPECT_EQ(nlohmann::json::parse(data_.Read("uploads/app_info_dynamic.json")),
              nlohmann::json::parse(R"({"uptime_s": 77, "health": "degraded",
                  "restart_required": false, "reboot_required": true,
                  "update_in_progress": false})"));
    EXPECT_THAT(History("upload"), ElementsAre("upload app_info_dynamic"));
}

TEST_F(ProductDataTest, RefusesApplicationInformationThatCannotBeRead) {
    Begin();
    DataClient client;
    qx_zam_connector_ProductDataHolder_SetAppInfo_req info{};
    info.info.productId = {0, 1};
    EXPECT_EQ(client.SetAppInfo(info, nullptr), kInvalidArgument);
    qx_zam_connector_ProductDataHolder_SetAppInfoDynamic_req dynamic{};
    dynamic.info.health = 4;
    EXPECT_EQ(client.SetAppInfoDynamic(dynamic), kInvalidArgument);
    EXPECT_FALSE(fs::exists(data_.Path("uploads")));
}

TEST_F(ProductDataTest, EndsWithEveryCloseAnsweredThatItTook) {
    Begin();
    std::vector<std::thread> threads;
    std::atomic<int> uploads = 0;
    for (long number = 1; number <= 3; ++number) {
        threads.emplace_back([&, number] {
            RealConnection connection;
            zam_connector::ZamProductSettings settings;
            settings.tree = Tree(number);
            unsigned long hash = 0;
            while (connection.ProductDataHolder().SetSettings(settings, hash) == 0) {
                EXPECT_EQ(hash, HashOf(settings.tree));
                ++uploads;
            }
        });
    }
    EXPECT_TRUE(Eventually([&] { return uploads >= 10; }));
    End();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_GE(History().size(), static_cast<std::size_t>(uploads.load()));
}

}  // namespace
}  // namespace zam_service
