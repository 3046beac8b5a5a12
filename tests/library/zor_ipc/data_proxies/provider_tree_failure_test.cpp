#include "data_rig.h"
#include "support/literal_list.h"

namespace zam_connector {
namespace {

using test::Lines;
using test::ProviderLine;
using test::ProviderRig;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using zam_test::Block;

using Policy = std::pair<unsigned long, ZamPolicy>;
using Settings = std::pair<unsigned long, ZamProductSettings>;

/// Four records, so four pieces of one.
zuv::TValue SmallTree() {
    return zuv::Map{{"a", 1}, {"b", "two"}, {"c", zuv::None()}};
}

Policy OldPolicy() {
    return {5, {zuv::TValue("before")}};
}

/// A step of `GetPolicy` that can fail.
struct Step {
    unsigned operation;
    std::size_t number;
    const char* name;   ///< of the operation in records
    std::size_t calls;  ///< made when it fails, the close included
    bool isWritten;     ///< tree and hash are
};

constexpr Step kSteps[] = {
    {test::kOpenPolicyChannel, 0, "OpenPolicyChannel", 1, false},
    {test::kGetData, 0, "GetData", 3, false},
    {test::kGetData, 1, "GetData", 4, false},
    {test::kGetData, 3, "GetData", 6, false},
    {test::kGetZamHash, 0, "GetZamHash", 7, false},
    {test::kGetZamResult, 0, "GetZamResult", 8, false},
    {test::kCloseChannel, 0, "CloseChannel", 8, true},
};

void ExpectStepFailure(const Step& step, test::Fault fault, int code, const std::string& line) {
    SCOPED_TRACE(line + " in call " + std::to_string(step.number));
    ProviderRig rig;
    rig.Give(SmallTree(), 1);
    rig.Fail(step.operation, fault, step.number);
    Policy policy = OldPolicy();
    EXPECT_EQ(rig.proxy.GetPolicy(policy), code);
    EXPECT_EQ(policy.first, step.isWritten ? rig.hash : 5);
    EXPECT_EQ(policy.second.tree, step.isWritten ? SmallTree() : zuv::TValue("before"));
    EXPECT_EQ(rig.TakeLines(), Lines{line});
    const auto operations = rig.Operations();
    EXPECT_EQ(operations.size(), step.calls);
    EXPECT_EQ(rig.CallsOf(test::kCloseChannel).size(),
              step.operation == test::kOpenPolicyChannel ? 0U : 1U);
    if (step.operation != test::kOpenPolicyChannel) {
        EXPECT_EQ(operations.back(), test::kCloseChannel);
        EXPECT_EQ(rig.transport.Calls().back().request, test::kChannelBytes);
    }
}

TEST(TreeTransferFailure, OfTheSessionIsMappedAndLoggedAtEveryStep) {
    for (const Step& step : kSteps) {
        for (const auto& row : test::kSessionFailures) {
            ExpectStepFailure(step, {.session = row.status}, row.code,
                              test::SessionLine(step.name, row.status));
        }
    }
}

TEST(TreeTransferFailure, OfTheTransportIsLoggedAtEveryStep) {
    for (const Step& step : kSteps) {
        for (const int status : test::kTransportStatuses) {
            ExpectStepFailure(step, {.transport = status}, test::kUnspecified,
                              test::TransportLine(step.name, status));
        }
    }
}

TEST(TreeTransferFailure, OfTheTransportComesBeforeTheSessionStatus) {
    for (const Step& step : kSteps) {
        ExpectStepFailure(step, {.session = -2, .transport = 4}, test::kUnspecified,
                          test::TransportLine(step.name, 4));
    }
}

TEST(TreeTransferFailure, NamesTheOperationThatOpensTheSettings) {
    ProviderRig rig;
    rig.Fail(test::kOpenSettingsChannel, {.session = -3});
    Settings settings{5, {zuv::TValue("before")}};
    EXPECT_EQ(rig.proxy.GetProductSettings(settings), test::kInvalidResult);
    EXPECT_EQ(settings.first, 5U);
    EXPECT_EQ(settings.second.tree, zuv::TValue("before"));
    EXPECT_EQ(rig.TakeLines(), Lines{test::SessionLine("OpenSettingsChannel", -3)});
    EXPECT_THAT(rig.Operations(), ElementsAre(test::kOpenSettingsChannel));
}

TEST(TreeTransferFailure, OfTheSettingsClosesTheirChannel) {
    ProviderRig rig;
    rig.Give(SmallTree());
    rig.Fail(test::kGetZamHash, {.session = -1});
    Settings settings{5, {zuv::TValue("before")}};
    EXPECT_EQ(rig.proxy.GetProductSettings(settings), test::kInvalidArgument);
    EXPECT_EQ(settings.second.tree, zuv::TValue("before"));
    EXPECT_EQ(rig.Operations().back(), test::kCloseChannel);
}

TEST(TreeTransferFailure, OfTheCloseWinsOverThatOfTheTransfer) {
    ProviderRig rig;
    rig.Give(SmallTree());
    rig.Fail(test::kGetData, {.session = -2});
    rig.Fail(test::kCloseChannel, {.session = -4});
    Policy policy = OldPolicy();
    EXPECT_EQ(rig.proxy.GetPolicy(policy), test::kInvalidArgument);
    EXPECT_EQ(policy.first, 5U);
    EXPECT_EQ(rig.TakeLines(),
              (Lines{test::SessionLine("GetData", -2), test::SessionLine("CloseChannel", -4)}));
}

TEST(TreeTransferFailure, OfTheCloseWinsOverTheServicesResult) {
    ProviderRig rig;
    rig.Give(SmallTree());
    rig.result = test::kServiceFailure;
    rig.Fail(test::kCloseChannel, {.session = -2});
    Policy policy = OldPolicy();
    EXPECT_EQ(rig.proxy.GetPolicy(policy), test::kInvalidResult);
    EXPECT_EQ(policy.second.tree, SmallTree());
    EXPECT_EQ(policy.first, rig.hash);
}

TEST(TreeTransferFailure, OfTheTransferHidesTheServicesResult) {
    ProviderRig rig;
    rig.pieces = {""};
    rig.result = test::kServiceFailure;
    Policy policy = OldPolicy();
    EXPECT_EQ(rig.proxy.GetPolicy(policy), test::kInvalidArgument);
}

struct DamageRow {
    std::string bytes;
    const char* text;
};

TEST(DamagedPiece, EndsTheTransferWithTheTextOfItsConversion) {
    const DamageRow rows[] = {
        {std::string("\x02\x10\0\0", 4),
         "piece of raw parameters, before byte 1 of 4: version 2, only 1 is known"},
        {std::string("\x01\x11\0\0", 4),
         "piece of raw parameters, before byte 2 of 4: tag 17, at most 16 is known"},
        {std::string("\x01\x10\x05\0", 4),
         "piece of raw parameters, before byte 4 of 4: 5 bytes are announced, 0 are left"},
    };
    for (const DamageRow& row : rows) {
        for (const std::size_t at : {0U, 1U, 3U}) {
            SCOPED_TRACE(::testing::Message() << row.text << " in piece " << at);
            ProviderRig rig;
            rig.Give(SmallTree(), 1);
            rig.pieces[at] = row.bytes;
            Policy policy = OldPolicy();
            EXPECT_EQ(rig.proxy.GetPolicy(policy), test::kInvalidArgument);
            EXPECT_EQ(policy.first, 5U);
            EXPECT_EQ(policy.second.tree, zuv::TValue("before"));
            EXPECT_EQ(rig.TakeLines(),
                      Lines{ProviderLine("GetDataFromChannel",
                                         std::string("Zam_data_pvr proxy: ") + row.text)});
            EXPECT_EQ(rig.CallsOf(test::kGetData).size(), at + 1);
            EXPECT_THAT(rig.CallsOf(test::kGetZamHash), IsEmpty());
            EXPECT_EQ(rig.Operations().back(), test::kCloseChannel);
        }
    }
}

TEST(DamagedPiece, MayLieOutsideItsArena) {
    const vd_bytes stretches[] = {{0, 5}, {1, 4}, {5, 0}, {0xFFFFFFFF, 0xFFFFFFFF}};
    for (const vd_bytes stretch : stretches) {
        ProviderRig rig;
        qx::OpenChannelResponse opened{};
        opened.channel = test::kChannel;
        rig.transport.Enqueue(testing::AnswerWith(opened));
        qx_zam_connector_ZamDataProvider_GetData_rsp response{};
        response.params.records = stretch;
        response.sessionStatus = 1;
        rig.transport.Enqueue(testing::AnswerWith(response, "abcd"));
        Policy policy = OldPolicy();
        EXPECT_EQ(rig.proxy.GetPolicy(policy), test::kInvalidArgument);
        EXPECT_EQ(rig.TakeLines(),
                  Lines{ProviderLine("GetDataFromChannel",
                                     "Zam_data_pvr proxy: raw parameters: offset " +
                                         std::to_string(stretch.offset) + " and length " +
                                         std::to_string(stretch.length) +
                                         " exceed the 4 bytes in use of the arena")});
        EXPECT_THAT(rig.Operations(),
                    ElementsAre(test::kOpenPolicyChannel, test::kGetData, test::kCloseChannel));
    }
}

TEST(ListThatIsNoTree, IsToldInTheWordsOfTheRebuild) {
    const auto map = Block(2, 0);
    const auto number = Block(6, 1);
    struct {
        test::List list;
        const char* text;
    } const rows[] = {
        {{}, "[RawZamParams] empty raw setting"},
        {{{{1, 2, 3, 4, 5}, ""}}, "[RawZamParams] Insufficient raw data size: fact/plan = 5/16"},
        {{{map, ""}, {Block(10, 9, "short"), "a/"}},
         "[RawZamParams] Insufficient raw data size: fact/plan = 21/25"},
        {{{Block(16, 0), ""}}, "[RawZamParams] Invalid value index: 16"},
        {{{map, ""}, {number, "a/b/"}}, "[RawZamParams] path level jump: prev = '', this = 'a/b/'"},
        {{{map, "r/"}, {number, "a/"}}, "[RawZamParams] non-rooted path: root = 'r/', this = 'a/'"},
        {{{map, ""}, {number, "1x/"}}, "[RawZamParams] Str to path fail: src = '1x/', state = 7"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        ProviderRig rig;
        rig.pieces = {test::PieceOf(row.list)};
        Policy policy = OldPolicy();
        EXPECT_EQ(rig.proxy.GetPolicy(policy), test::kInvalidArgument);
        EXPECT_EQ(policy.first, 5U);
        EXPECT_EQ(policy.second.tree, zuv::TValue("before"));
        EXPECT_EQ(rig.TakeLines(),
                  Lines{ProviderLine("GetDataFromChannel",
                                     std::string("Zam_data_pvr proxy: data deserialization error "
                                                 "- ") +
                                         row.text + "!")});
        // Hash and result are asked for before the tree is rebuilt.
        EXPECT_THAT(rig.Operations(),
                    ElementsAre(test::kOpenPolicyChannel, test::kGetData, test::kGetZamHash,
                                test::kGetZamResult, test::kCloseChannel));
    }
}

TEST(ListThatIsNoTree, LeavesHashAndResultOfAnOpenChannelAlone) {
    ProviderRig rig;
    rig.pieces = {""};
    zuv::TValue tree = "before";
    unsigned long hash = 5;
    int result = 6;
    EXPECT_EQ(rig.proxy.GetDataFromChannel(1, tree, hash, result), test::kInvalidArgument);
    EXPECT_EQ(tree, zuv::TValue("before"));
    EXPECT_EQ(hash, 5U);
    EXPECT_EQ(result, 6);
}

}  // namespace
}  // namespace zam_connector
