#include <fmt/format.h>

#include <array>
#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "data_fixture.h"
#include "history.h"
#include "support/random_tree.h"
#include "zam_connector/zam_converter.h"

namespace zam_connector::test {
namespace {

using ::testing::IsEmpty;

constexpr std::int32_t kEulaPieceBytes = 32768;

/// Whole transfers of every sort and size, and what they leave in the folder.
class ServiceTransfers : public ServiceDataTest {
protected:
    void ExpectServed(const zuv::TValue& tree) {
        std::pair<unsigned long, ZamPolicy> policy;
        ASSERT_EQ(Provider().GetPolicy(policy), 0);
        EXPECT_TRUE(policy.second.tree.IsIdenticalTo(tree));
        unsigned long hash = 0;
        EXPECT_EQ(Provider().GetPolicyHash(hash), 0);
        EXPECT_EQ(policy.first, hash);
        EXPECT_NE(hash, 0U);
    }

    void ExpectStored(const zuv::TValue& tree) {
        unsigned long hash = 0;
        ASSERT_EQ(Holder().SetSettings({tree}, hash), 0);
        EXPECT_TRUE(Upload("settings").IsIdenticalTo(tree));
        unsigned long synced = 0;
        EXPECT_EQ(Provider().GetSyncedSettingsHash(synced), 0);
        EXPECT_EQ(synced, hash);
        EXPECT_NE(hash, 0U);
    }
};

template <typename Integer>
zuv::Vector Limits() {
    zuv::Vector limits;
    limits.emplace_back(std::numeric_limits<Integer>::min());
    limits.emplace_back(Integer{1});
    limits.emplace_back(std::numeric_limits<Integer>::max());
    return limits;
}

zuv::TValue TreeOfEveryKind() {
    using Double = std::numeric_limits<double>;
    zuv::Vector doubles;
    for (const double number : {0.0, -0.0, 1.5, Double::denorm_min(), Double::max(),
                                Double::infinity(), Double::quiet_NaN()}) {
        doubles.emplace_back(number);
    }
    zuv::Vector texts;
    for (const char* const text : {"", "text", "gr\xC3\xBC\xC3\x9F", "\xFF\xFE", "a\"\\/\n\x01"}) {
        texts.emplace_back(text);
    }
    texts.emplace_back(std::string("\0zero\0", 6));
    zuv::Vector blobs;
    blobs.emplace_back(zuv::Blob());
    blobs.emplace_back(zuv::Blob{0, 255, 7});
    return zuv::Map{{"none", zuv::None()},
                    {"empty vector", zuv::Vector()},
                    {"empty map", zuv::Map()},
                    {"true", true},
                    {"false", false},
                    {"int8", Limits<signed char>()},
                    {"int16", Limits<short>()},
                    {"int32", Limits<int>()},
                    {"int64", Limits<long>()},
                    {"uint8", Limits<unsigned char>()},
                    {"uint16", Limits<unsigned short>()},
                    {"uint32", Limits<unsigned int>()},
                    {"uint64", Limits<unsigned long>()},
                    {"double", std::move(doubles)},
                    {"time", qor::types::Timestamp(-5)},
                    {"text", std::move(texts)},
                    {"blob", std::move(blobs)}};
}

/// All that a path can hold.
zuv::TValue TreeOfOddKeys() {
    zuv::Map map;
    for (const char* const key :
         {" ", "a b", ".", "..", "$", "$int8", "$$", "-1", "gr\xC3\xBC\xC3\x9F", "\xFF", "\x01",
          "\n", "{}[],:", "#?&=", "*", "true", "null", "\xF0\x9F\x94\x91", "_"}) {
        map[key] = zuv::Map{{key, key}};
    }
    map[std::string("zero\0inside", 11)] = 1L;
    map[std::string(10'000, 'k')] = 2L;
    return map;
}

TEST_F(ServiceTransfers, BringEveryKindAndOddKeysBothWays) {
    for (const zuv::TValue& tree :
         {TreeOfEveryKind(), TreeOfOddKeys(), zuv::TValue(7L), zuv::TValue("only a text")}) {
        service_.Kill();
        service_.WriteData("policy.json", tree_json::Write(tree));
        StartService();
        ExpectServed(tree);
        ExpectStored(tree);
    }
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(ServiceTransfers, BringRandomTreesBothWays) {
    zam_test::RandomTrees trees(20261121);
    StartService();
    for (int round = 0; round < 20; ++round) {
        const zuv::TValue tree = trees.Next(500);
        ExpectStored(tree);
        service_.WriteData("policy.json", service_.ReadData("uploads/settings.json"));
        unsigned long stored = 0;
        ASSERT_EQ(Provider().GetSyncedSettingsHash(stored), 0);
        unsigned long served = 0;
        EXPECT_TRUE(
            Eventually([&] { return Provider().GetPolicyHash(served) == 0 && served == stored; }));
        ExpectServed(tree);
    }
}

TEST_F(ServiceTransfers, BringALargeTreeBothWays) {
    // Three nodes an entry.
    const zuv::TValue tree = TreeOf(IsFullSize() ? 333'333 : 33'333);
    StartService();
    service_.WriteData("policy.json", tree_json::Write(tree));
    unsigned long hash = 0;
    EXPECT_TRUE(Eventually([&] { return Provider().GetPolicyHash(hash) == 0 && hash != 0; }));
    ExpectServed(tree);
    ExpectStored(tree);
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(ServiceTransfers, StoreAgreementsWithLongTexts) {
    std::vector<AppEula> eulas(200);
    for (std::size_t index = 0; index < eulas.size(); ++index) {
        eulas[index].id[0] = static_cast<std::byte>(index);
        eulas[index].releaseTime = qor::types::Timestamp(static_cast<long>(index));
        eulas[index].text = std::string(100'000, static_cast<char>('a' + index % 26));
        eulas[index].localeInfo = static_cast<std::int32_t>(index);
    }
    StartService();
    unsigned long hash = 0;
    ASSERT_EQ(Holder().SetAppEulas(eulas, hash), 0);
    EXPECT_TRUE(
        Upload("eulas").IsIdenticalTo(*zam_converter::ConvertEulas(eulas, kEulaPieceBytes)));
    EXPECT_NE(hash, 0U);
}

TEST_F(ServiceTransfers, StoreManyUpdates) {
    AppUpdates updates;
    updates.updates.resize(5'000);
    updates.statuses.resize(5'000);
    for (std::size_t index = 0; index < updates.updates.size(); ++index) {
        UpdateInfo& update = updates.updates[index];
        update.id[0] = static_cast<std::byte>(index);
        update.id[1] = static_cast<std::byte>(index >> 8U);
        update.name = "update " + std::to_string(index);
        if (index % 2 == 0) {
            update.targetProduct = "product";
        }
        updates.statuses[index].id = update.id;
    }
    StartService();
    unsigned long hash = 0;
    ASSERT_EQ(Holder().SetAppUpdates(updates, hash), 0);
    EXPECT_TRUE(Upload("updates").IsIdenticalTo(*zam_converter::ConvertAppUpdates(updates)));
    EXPECT_NE(hash, 0U);
}

TEST_F(ServiceTransfers, BringManyIdentifiersInTheirOrder) {
    ZamUpdatesStatus expected;
    nlohmann::json json = {{"approved", nlohmann::json::array()},
                           {"declined", nlohmann::json::array()},
                           {"revoked", nlohmann::json::array()}};
    const auto add = [&json](std::vector<ZamId>& list, const char* name, unsigned count) {
        for (unsigned number = count; number > 0; --number) {
            ZamId id{};
            id[0] = static_cast<std::byte>(number);
            id[1] = static_cast<std::byte>(number >> 8U);
            list.push_back(id);
            const std::string digits = fmt::format("{:02x}{:02x}", number & 0xFFU, number >> 8U);
            json.at(name).push_back(digits + std::string(28, '0'));
        }
    };
    add(expected.approved, "approved", 5'000);
    add(expected.declined, "declined", 10);
    add(expected.revoked, "revoked", 11);
    service_.WriteData("updates_status.json", json.dump());
    StartService();
    std::pair<unsigned long, ZamUpdatesStatus> status;
    ASSERT_EQ(Provider().GetZamUpdatesStatus(status), 0);
    EXPECT_TRUE(status.second == expected);
    unsigned long hash = 0;
    EXPECT_EQ(Provider().GetZamUpdatesStatusHash(hash), 0);
    EXPECT_EQ(status.first, hash);
}

TEST_F(ServiceTransfers, BringNothingFromAnEmptyFolder) {
    StartService();
    std::pair<unsigned long, ZamPolicy> policy{7, {zuv::TValue("old")}};
    EXPECT_EQ(Provider().GetPolicy(policy), 0);
    EXPECT_EQ(policy.first, 0U);
    EXPECT_EQ(policy.second.tree.Kind(), zuv::Kind::None);
    std::pair<unsigned long, ZamProductSettings> settings{7, {zuv::TValue("old")}};
    EXPECT_EQ(Provider().GetProductSettings(settings), 0);
    EXPECT_EQ(settings.first, 0U);
    EXPECT_EQ(settings.second.tree.Kind(), zuv::Kind::None);
    std::pair<unsigned long, ZamSubscriptions> subscriptions{7, {}};
    subscriptions.second.events["old"] = {};
    EXPECT_EQ(Provider().GetSubscriptions(subscriptions), 0);
    EXPECT_EQ(subscriptions.first, 0U);
    EXPECT_THAT(subscriptions.second.events, IsEmpty());
    std::pair<unsigned long, ZamUpdatesStatus> status{7, {{ZamId{}}, {ZamId{}}, {ZamId{}}}};
    EXPECT_EQ(Provider().GetZamUpdatesStatus(status), 0);
    EXPECT_EQ(status.first, 0U);
    EXPECT_EQ(status.second, ZamUpdatesStatus());
    std::string certificate = "old";
    EXPECT_EQ(Provider().GetZamReserveCert(certificate), 0);
    EXPECT_EQ(certificate, "");
    unsigned long synced = 7;
    EXPECT_EQ(Provider().GetSyncedSettingsHash(synced), 0);
    EXPECT_EQ(synced, 0U);
    EXPECT_THAT(logger_.Records(), IsEmpty());
}

TEST_F(ServiceTransfers, StoreNothingAtAll) {
    StartService();
    ExpectStored(zuv::TValue());
    ExpectStored(zuv::Map());
    ExpectStored(zuv::Vector());
    unsigned long hash = 0;
    EXPECT_EQ(Holder().SetAppEulas({}, hash), 0);
    EXPECT_TRUE(Upload("eulas").IsIdenticalTo(*zam_converter::ConvertEulas({}, kEulaPieceBytes)));
    EXPECT_EQ(Holder().SetAppUpdates({}, hash), 0);
    EXPECT_TRUE(Upload("updates").IsIdenticalTo(*zam_converter::ConvertAppUpdates({})));
    EXPECT_EQ(Holder().SetAppInfo({}), 0);
    EXPECT_EQ(Holder().SetAppInfoDynamic({}), 0);
    EXPECT_EQ(HistoryOf(service_, "upload").size(), 7U);
}

TEST_F(ServiceTransfers, GoOnAtOnceWhileOtherCallsOfTheSameProxiesBlock) {
    constexpr int kRounds = 3;
    const zuv::TValue tree = TreeOf(2'000);
    service_.WriteData("policy.json", tree_json::Write(tree));
    service_.WriteData("faults.json", R"({"rules": [
        {"endpoint": "zamDataProvider", "operation": "GetSubscriptions", "delay_ms": 86400000},
        {"endpoint": "productDataHolder", "operation": "SetAppInfoDynamic",
         "delay_ms": 86400000}]})");
    StartLoud();
    std::thread blockedGet([this] {
        std::pair<unsigned long, ZamSubscriptions> subscriptions;
        EXPECT_EQ(Provider().GetSubscriptions(subscriptions), kUnspecifiedError);
    });
    std::thread blockedSet(
        [this] { EXPECT_EQ(Holder().SetAppInfoDynamic({}), kUnspecifiedError); });
    EXPECT_TRUE(Eventually([this] {
        return ServiceLogged("GetSubscriptions of zamDataProvider meets with a fault") &&
               ServiceLogged("SetAppInfoDynamic of productDataHolder meets with a fault");
    }));

    std::vector<std::thread> transfers;
    for (int thread = 0; thread < 2; ++thread) {
        transfers.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round) {
                std::pair<unsigned long, ZamPolicy> policy;
                EXPECT_EQ(Provider().GetPolicy(policy), 0);
                EXPECT_TRUE(policy.second.tree.IsIdenticalTo(tree));
            }
        });
        transfers.emplace_back([&] {
            for (int round = 0; round < kRounds; ++round) {
                unsigned long hash = 0;
                EXPECT_EQ(Holder().SetSettings({tree}, hash), 0);
                EXPECT_NE(hash, 0U);
            }
        });
    }
    for (std::thread& transfer : transfers) {
        transfer.join();
    }
    EXPECT_TRUE(Upload("settings").IsIdenticalTo(tree));
    EXPECT_THAT(logger_.Records(), IsEmpty()) << "the two calls still wait";
    service_.Kill();
    blockedGet.join();
    blockedSet.join();
}

}  // namespace
}  // namespace zam_connector::test
