#include "faults/piece_damage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "common/raw_zam_param_casts.h"
#include "daemon_fixture.h"
#include "data/tree_snapshot.h"
#include "data_client.h"
#include "qx/zam_data_provider.h"
#include "support/real_connection.h"

namespace zam_service {
namespace {

using ::testing::HasSubstr;
using zam_connector::test::RealConnection;
using zam_service::testing::DataClient;
using zam_service::testing::Flattened;
using zam_service::testing::RawList;

using Response = qx_zam_connector_ZamDataProvider_GetData_rsp;

constexpr int kInvalidPiece = static_cast<int>(0x80000046U);

/// The answer to a request for the one piece of a list.
struct Answer {
    explicit Answer(const RawList& records) : arena(CutIntoPieces(records).front()) {
        Response response{};
        response.params.records = {0, static_cast<std::uint32_t>(arena.size())};
        response.sessionStatus = 1;
        message.assign(reinterpret_cast<unsigned char*>(&response),
                       reinterpret_cast<unsigned char*>(&response) + sizeof(response));
    }

    Response Message() const {
        Response response{};
        std::copy(message.begin(), message.end(), reinterpret_cast<unsigned char*>(&response));
        return response;
    }

    RawList Records() {
        vd_arena bytes{};
        vd_arena_init(&bytes, arena.data(), static_cast<std::uint32_t>(arena.size()));
        bytes.used = bytes.capacity;
        return zam_connector::common::CastFromVd(Message().params, &bytes);
    }

    std::vector<unsigned char> message;
    std::vector<unsigned char> arena;
};

RawList List() {
    zuv::Vector vector;
    vector.emplace_back("first");
    vector.emplace_back(2L);
    return Flattened(zuv::Map{{"list", std::move(vector)}, {"name", "text"}});
}

TEST(PieceDamage, HasANameForEveryKind) {
    EXPECT_EQ(FindPieceDamage("record_value"), PieceDamage::RecordValue);
    EXPECT_EQ(FindPieceDamage("length"), PieceDamage::Length);
    EXPECT_EQ(FindPieceDamage("repeat_path"), PieceDamage::RepeatPath);
    EXPECT_EQ(FindPieceDamage("vector_gap"), PieceDamage::VectorGap);
    EXPECT_EQ(FindPieceDamage("endless"), PieceDamage::Endless);
    EXPECT_EQ(FindPieceDamage("other"), std::nullopt);
}

TEST(PieceDamage, CutsTheFirstRecordsValue) {
    Answer answer(List());
    EXPECT_TRUE(DamagePiece(PieceDamage::RecordValue, answer.message, answer.arena));
    RawList expected = List();
    expected.front().value.pop_back();
    EXPECT_EQ(answer.Records(), expected);
}

TEST(PieceDamage, AnnouncesMoreThanThereIs) {
    Answer answer(List());
    EXPECT_TRUE(DamagePiece(PieceDamage::Length, answer.message, answer.arena));
    EXPECT_THROW(answer.Records(), std::invalid_argument);
}

TEST(PieceDamage, RepeatsTheLastPath) {
    Answer answer(List());
    EXPECT_TRUE(DamagePiece(PieceDamage::RepeatPath, answer.message, answer.arena));
    RawList expected = List();
    expected.push_back(RawList(expected).back());
    EXPECT_EQ(answer.Records(), expected);
}

TEST(PieceDamage, LeavesAGapInAVector) {
    Answer answer(List());
    EXPECT_TRUE(DamagePiece(PieceDamage::VectorGap, answer.message, answer.arena));
    RawList expected = List();
    ASSERT_EQ(expected[2].path, "list/0/");
    expected.erase(expected.begin() + 2);
    EXPECT_EQ(answer.Records(), expected);
}

TEST(PieceDamage, HidesTheEnd) {
    Answer answer(List());
    EXPECT_TRUE(DamagePiece(PieceDamage::Endless, answer.message, answer.arena));
    EXPECT_EQ(answer.Message().sessionStatus, 0);
    EXPECT_EQ(answer.Records(), List());
    EXPECT_FALSE(DamagePiece(PieceDamage::Endless, answer.message, answer.arena));
}

TEST(PieceDamage, LeavesAloneWhatHasNothingForIt) {
    Answer scalar(Flattened(zuv::TValue(1L)));
    EXPECT_FALSE(DamagePiece(PieceDamage::VectorGap, scalar.message, scalar.arena));
    EXPECT_EQ(scalar.Records(), Flattened(zuv::TValue(1L)));
    for (const PieceDamage damage : {PieceDamage::RecordValue, PieceDamage::Length,
                                     PieceDamage::RepeatPath, PieceDamage::VectorGap}) {
        Answer empty(Flattened(zuv::TValue()));
        empty.arena.clear();
        Response response{};
        std::copy_n(reinterpret_cast<unsigned char*>(&response), sizeof(response),
                    empty.message.begin());
        EXPECT_FALSE(DamagePiece(damage, empty.message, empty.arena));
    }
}

class PieceDamageTest : public zam_service::testing::DaemonFixture {
protected:
    void BeginWithDamage(const std::string& effect) {
        data_.Write("policy.json", R"({"list": ["first", 2], "name": "text"})");
        BeginWithFault(R"({"endpoint": "zamDataProvider", "operation": "GetData", )" + effect +
                       "}");
    }
};

TEST_F(PieceDamageTest, ReachesTheLibrary) {
    const std::pair<const char*, const char*> rows[] = {
        {"record_value", "Zam_data_pvr proxy: data deserialization error - "},
        {"length", "Zam_data_pvr proxy: "},
    };
    for (const auto& [damage, text] : rows) {
        BeginWithDamage(std::string(R"("calls": 1, "damage": ")") + damage + "\"");
        RealConnection connection;
        std::pair<unsigned long, zam_connector::ZamPolicy> policy;
        EXPECT_EQ(connection.DataProvider().GetPolicy(policy), kInvalidPiece) << damage;
        EXPECT_THAT(Logged(), HasSubstr(text)) << damage;
        EXPECT_EQ(connection.DataProvider().GetPolicy(policy), 0) << damage;
        End();
        logger_.Clear();
    }
}

TEST_F(PieceDamageTest, LeavesANoneValueInAGap) {
    BeginWithDamage(R"("damage": "vector_gap")");
    RealConnection connection;
    std::pair<unsigned long, zam_connector::ZamPolicy> policy;
    EXPECT_EQ(connection.DataProvider().GetPolicy(policy), 0);
    const auto& list = policy.second.tree.Find("list")->Get<zuv::Vector>();
    ASSERT_EQ(list.size(), 2U);
    EXPECT_EQ(list[0].Kind(), zuv::Kind::None);
}

TEST_F(PieceDamageTest, LetsAChannelNeverEnd) {
    BeginWithDamage(R"("damage": "endless", "calls": [1, 100])");
    DataClient client;
    const std::int64_t channel = client.OpenPolicy();
    EXPECT_FALSE(client.GetData(channel).records.empty());
    for (int call = 2; call <= 100; ++call) {
        const auto piece = client.GetData(channel);
        ASSERT_EQ(piece.status, 0);
        ASSERT_TRUE(piece.records.empty());
    }
    EXPECT_EQ(client.GetData(channel).status, 1);
}

TEST_F(PieceDamageTest, GoesWithADelayAndAStatus) {
    BeginWithDamage(R"("damage": "vector_gap", "delay_ms": 1, "session_status": 7)");
    DataClient client;
    const auto piece = client.GetData(client.OpenPolicy());
    EXPECT_EQ(piece.status, 7);
    EXPECT_EQ(piece.records.size(), 4U);
}

}  // namespace
}  // namespace zam_service
