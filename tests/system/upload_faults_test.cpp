#include <string>

#include "transfer_faults.h"

namespace zam_connector::test {
namespace {

using ::testing::IsEmpty;

/// Transfers to the service; settings were uploaded before.
class UploadFaults : public TransferFaults {
protected:
    static ZamProductSettings Before() { return {zuv::Map{{"before", true}}}; }

    void RestartWith(const Step& step, const std::string& effect) {
        TransferFaults::RestartWith("productDataHolder", step, effect);
    }

    void UploadBefore() {
        service_.WriteData("faults.json", R"({"rules": []})");
        service_.Kill();
        StartService();
        unsigned long hash = 0;
        ASSERT_EQ(Holder().SetSettings(Before(), hash), 0);
    }

    bool HasStored(const zuv::TValue& tree) const { return Upload("settings").IsIdenticalTo(tree); }

    unsigned long hash_ = 7;
};

TEST_F(UploadFaults, AtTheOpeningOpenNothing) {
    struct {
        const char* operation;
        int (*call)(IProductDataHolder& holder, unsigned long& hash);
    } const rows[] = {
        {"OpenSetSettingsChannel",
         [](IProductDataHolder& holder, unsigned long& hash) {
             return holder.SetSettings({FourPieces()}, hash);
         }},
        {"OpenAppEulasChannel", [](IProductDataHolder& holder,
                                   unsigned long& hash) { return holder.SetAppEulas({}, hash); }},
        {"OpenAppUpdatesChannel",
         [](IProductDataHolder& holder, unsigned long& hash) {
             return holder.SetAppUpdates({}, hash);
         }},
    };
    for (const auto& row : rows) {
        for (const Effect& effect : kEffects) {
            RestartWith({row.operation, 1}, effect.rule);
            EXPECT_EQ(row.call(Holder(), hash_), effect.code) << row.operation << effect.rule;
            EXPECT_EQ(TakeLines(), Lines{LineOf(row.operation, effect)});
            EXPECT_EQ(hash_, 7U);
            EXPECT_EQ(TransferChannels().OpenedSinceStart(), 0);
        }
    }
}

TEST_F(UploadFaults, OfAPieceAreHandedOnAndTheUploadBeforeStays) {
    UploadBefore();
    for (const int call : {kFirst, kMiddle, kLast}) {
        for (const Effect& effect : kEffects) {
            SCOPED_TRACE(std::to_string(call) + " " + effect.rule);
            RestartWith({"SendData", call}, effect.rule);
            EXPECT_EQ(Holder().SetSettings({FourPieces()}, hash_), effect.code);
            EXPECT_EQ(TakeLines(), Lines{LineOf("SendData", effect)});
            EXPECT_EQ(hash_, 7U);
            EXPECT_FALSE(TransferChannels().IsLastUploadOpen());
            EXPECT_TRUE(HasStored(Before().tree));
        }
    }
}

/// Nothing of it is sent, so that the service cannot tell it from an empty tree but by the close.
TEST_F(UploadFaults, OfATreeThatCannotBeFlattenedLeaveTheUploadBefore) {
    UploadBefore();
    logger_.Clear();
    EXPECT_EQ(Holder().SetSettings({zuv::Map{{"no/key", 1L}}}, hash_), kInvalidArgument);
    EXPECT_EQ(TakeLines(),
              Lines{"SendZamParams: data serialization error - [RawZamParams] Path to str fail: "
                    "state = 7!"});
    EXPECT_EQ(hash_, 7U);
    EXPECT_TRUE(HasStored(Before().tree));
    EXPECT_FALSE(TransferChannels().IsLastUploadOpen());
    EXPECT_EQ(Holder().SetSettings({zuv::TValue()}, hash_), 0);
    EXPECT_TRUE(HasStored(zuv::TValue())) << "a none tree that was meant";
}

TEST_F(UploadFaults, AtTheCloseLeaveTheHash) {
    for (const Effect& effect : kEffects) {
        SCOPED_TRACE(effect.rule);
        UploadBefore();
        RestartWith({"CloseChannel", 1}, effect.rule);
        EXPECT_EQ(Holder().SetSettings({FourPieces()}, hash_), effect.code);
        EXPECT_EQ(TakeLines(), Lines{LineOf("CloseChannel", effect)});
        EXPECT_EQ(hash_, 7U);
        EXPECT_TRUE(HasStored(Before().tree));
        EXPECT_TRUE(TransferChannels().IsLastUploadOpen()) << "the service was not asked";
    }
}

TEST_F(UploadFaults, OfTheResultAreHandedOn) {
    UploadBefore();
    RestartWith({"CloseChannel", 1}, R"("result_code": "0x80000045")");
    EXPECT_EQ(Holder().SetSettings({FourPieces()}, hash_), static_cast<int>(0x80000045U));
    EXPECT_THAT(TakeLines(), IsEmpty());
    EXPECT_EQ(hash_, 7U);
    EXPECT_TRUE(HasStored(Before().tree));
}

TEST_F(UploadFaults, BehindTheCloseLeaveTheWholeUpload) {
    for (const Effect& effect : kEffects) {
        SCOPED_TRACE(effect.rule);
        UploadBefore();
        RestartWith({"CloseChannel", 1}, std::string(effect.rule) + R"(, "when": "after")");
        EXPECT_EQ(Holder().SetSettings({FourPieces()}, hash_), effect.code);
        EXPECT_EQ(TakeLines(), Lines{LineOf("CloseChannel", effect)});
        EXPECT_EQ(hash_, 7U);
        EXPECT_TRUE(HasStored(FourPieces()));
        EXPECT_FALSE(TransferChannels().IsLastUploadOpen());
    }
}

TEST_F(UploadFaults, OfAnotherCallOfTheClientLeaveTheTransferAloneWhenTheConnectionBreaks) {
    UploadBefore();
    TransferFaults::RestartWith(
        R"({"endpoint": "connController", "operation": "GetState", "drop": true})");
    TransferChannels channels;
    const std::int64_t channel = channels.OpenUpload();
    ZamConnectorState state{};
    EXPECT_EQ(Controller().GetState(state), kUnspecifiedError);
    EXPECT_EQ(channels.CloseUpload(channel), kNoError);
    EXPECT_FALSE(HasStored(Before().tree)) << "it was taken, empty as it is";
}

}  // namespace
}  // namespace zam_connector::test
