#include <string>
#include <utility>

#include "transfer_faults.h"

namespace zam_connector::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class TreeTransferFaults : public TransferFaults {
protected:
    TreeTransferFaults() {
        service_.WriteData("policy.json", tree_json::Write(FourServedPieces()));
    }

    std::pair<unsigned long, ZamPolicy> policy_{7, {zuv::TValue("before")}};

    bool IsUntouched() const {
        return policy_.first == 7 && policy_.second.tree == zuv::TValue("before");
    }
};

TEST_F(TreeTransferFaults, AtTheOpeningOpenNothing) {
    RestartWithAll("zamDataProvider", {"OpenPolicyChannel", 1});
    for (const Effect& effect : kEffects) {
        EXPECT_EQ(Provider().GetPolicy(policy_), effect.code) << effect.rule;
        EXPECT_EQ(TakeLines(), Lines{LineOf("OpenPolicyChannel", effect)});
        EXPECT_TRUE(IsUntouched());
    }
    EXPECT_EQ(TransferChannels().OpenedSinceStart(), 0);

    RestartWithAll("zamDataProvider", {"OpenSettingsChannel", 1});
    for (const Effect& effect : kEffects) {
        std::pair<unsigned long, ZamProductSettings> settings{7, {zuv::TValue("before")}};
        EXPECT_EQ(Provider().GetProductSettings(settings), effect.code) << effect.rule;
        EXPECT_EQ(TakeLines(), Lines{LineOf("OpenSettingsChannel", effect)});
        EXPECT_EQ(settings.first, 7U);
        EXPECT_EQ(settings.second.tree, zuv::TValue("before"));
    }
    EXPECT_EQ(TransferChannels().OpenedSinceStart(), 0);
}

TEST_F(TreeTransferFaults, InTheMiddleLeaveTheOutputsAndCloseTheChannel) {
    for (const Step& step :
         {Step{"GetData", kFirst}, Step{"GetData", kMiddle}, Step{"GetData", kLast},
          Step{"GetZamHash", 1}, Step{"GetZamResult", 1}}) {
        RestartWithAll("zamDataProvider", step);
        for (const Effect& effect : kEffects) {
            SCOPED_TRACE(std::string(step.operation) + " " + effect.rule);
            EXPECT_EQ(Provider().GetPolicy(policy_), effect.code);
            EXPECT_EQ(TakeLines(), Lines{LineOf(step.operation, effect)});
            EXPECT_TRUE(IsUntouched());
            EXPECT_FALSE(TransferChannels().IsLastTreeOpen());
        }
        std::pair<unsigned long, ZamPolicy> again;
        EXPECT_EQ(Provider().GetPolicy(again), 0) << "the next transfer succeeds";
        EXPECT_EQ(again.second.tree, FourServedPieces());
    }
}

TEST_F(TreeTransferFaults, AtTheCloseComeBehindTheTreeAndLeaveTheChannelOpen) {
    for (const Effect& effect : kEffects) {
        SCOPED_TRACE(effect.rule);
        policy_ = {7, {zuv::TValue("before")}};
        RestartWith("zamDataProvider", {"CloseChannel", 1}, effect.rule);
        EXPECT_EQ(Provider().GetPolicy(policy_), effect.code);
        EXPECT_EQ(TakeLines(), Lines{LineOf("CloseChannel", effect)});
        EXPECT_EQ(policy_.second.tree, FourServedPieces());
        EXPECT_NE(policy_.first, 7U);
        EXPECT_TRUE(TransferChannels().IsLastTreeOpen()) << "the service was not asked";
    }
}

TEST_F(TreeTransferFaults, OfDamagedRecordsLeaveTheOutputsAndCloseTheChannel) {
    struct {
        const char* damage;
        const char* line;
    } const rows[] = {
        {"record_value", "data deserialization error - [RawZamParams] Insufficient raw data size"},
        {"length", "piece of raw parameters"},
        {"repeat_path", "data deserialization error - "},
    };
    for (const auto& row : rows) {
        for (const int call : {kFirst, kMiddle, kLast}) {
            SCOPED_TRACE(std::string(row.damage) + " in piece " + std::to_string(call));
            RestartWith("zamDataProvider", {"GetData", call},
                        std::string(R"("damage": ")") + row.damage + "\"");
            EXPECT_EQ(Provider().GetPolicy(policy_), kInvalidArgument);
            EXPECT_THAT(TakeLines(),
                        ElementsAre(StartsWith(std::string("Zam_data_pvr proxy: ") + row.line)));
            EXPECT_TRUE(IsUntouched());
            EXPECT_FALSE(TransferChannels().IsLastTreeOpen());
        }
    }
}

TEST_F(TreeTransferFaults, OfAVectorGapAreFilled) {
    service_.WriteData("policy.json", "[1, 2, 3]");
    RestartWith("zamDataProvider", {"GetData", 1}, R"("damage": "vector_gap")");
    ASSERT_EQ(Provider().GetPolicy(policy_), 0);
    EXPECT_THAT(TakeLines(), IsEmpty());
    const auto* const vector = policy_.second.tree.GetIf<zuv::Vector>();
    ASSERT_NE(vector, nullptr);
    EXPECT_EQ(vector->size(), 3U);
    EXPECT_THAT(*vector, Contains(zuv::TValue()));
}

TEST_F(TreeTransferFaults, OfAChannelThatDoesNotEndGoOnUntilItDoes) {
    RestartWith(R"({"endpoint": "zamDataProvider", "operation": "GetData", "calls": [1, 2000],
                    "damage": "endless"})");
    EXPECT_EQ(Provider().GetPolicy(policy_), 0);
    EXPECT_EQ(policy_.second.tree, FourServedPieces());
    EXPECT_THAT(TakeLines(), IsEmpty());

    service_.WriteData("faults.json", R"({"rules": [{"endpoint": "zamDataProvider",
        "operation": "GetData", "calls": 500, "drop": true}, {"endpoint": "zamDataProvider",
        "operation": "GetData", "damage": "endless"}]})");
    service_.Kill();
    StartService();
    std::pair<unsigned long, ZamPolicy> endless{7, {zuv::TValue("before")}};
    EXPECT_EQ(Provider().GetPolicy(endless), kUnspecifiedError);
    EXPECT_EQ(endless.first, 7U);
    EXPECT_EQ(TakeLines(), Lines{LineOf("GetData", kEffects[6])});
    EXPECT_FALSE(TransferChannels().IsLastTreeOpen());
}

TEST_F(TransferFaults, OfTheUpdatesStatusLeaveTheOutputs) {
    constexpr char kRow[] = R"("00112233445566778899aabbccddeeff")";
    service_.WriteData("updates_status.json", std::string(R"({"approved": [)") + kRow +
                                                  R"(], "declined": [)" + kRow +
                                                  R"(], "revoked": [)" + kRow + "]}");
    for (const Effect& effect : kEffects) {
        std::pair<unsigned long, ZamUpdatesStatus> status{7, {}};
        for (const char* const operation :
             {"OpenZamUpdatesStatusChannel", "CloseZamUpdatesStatusChannel"}) {
            SCOPED_TRACE(std::string(operation) + effect.rule);
            RestartWith("zamDataProvider", {operation, 1}, effect.rule);
            EXPECT_EQ(Provider().GetZamUpdatesStatus(status), effect.code);
            EXPECT_EQ(TakeLines(), Lines{LineOf(operation, effect)});
            EXPECT_EQ(status.first, 7U);
            const bool isOpened = operation[0] == 'C';
            EXPECT_EQ(TransferChannels().IsLastUpdatesStatusOpen(), isOpened);
        }
        // Each kind takes two calls: a piece, and the end.
        for (const int call : {1, 2, 4, 6}) {
            SCOPED_TRACE("GetUpdatesStatus " + std::to_string(call) + effect.rule);
            RestartWith("zamDataProvider", {"GetUpdatesStatus", call}, effect.rule);
            EXPECT_EQ(Provider().GetZamUpdatesStatus(status), kUnspecifiedError);
            const Lines lines = TakeLines();
            ASSERT_FALSE(lines.empty());
            EXPECT_THAT(lines.back(),
                        StartsWith("GetZamUpdatesStatus: Can't get zam update status code "));
            EXPECT_EQ(status.first, 7U);
            EXPECT_THAT(status.second.approved, IsEmpty());
            EXPECT_FALSE(TransferChannels().IsLastUpdatesStatusOpen());
        }
    }
}

}  // namespace
}  // namespace zam_connector::test
