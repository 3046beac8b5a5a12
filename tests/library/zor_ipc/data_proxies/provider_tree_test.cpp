#include "common/raw_zam_param_casts.h"
#include "data_rig.h"
#include "support/random_tree.h"

namespace zam_connector {
namespace {

using test::ProviderRig;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Policy = std::pair<unsigned long, ZamPolicy>;
using Settings = std::pair<unsigned long, ZamProductSettings>;

zuv::TValue SomeTree() {
    return zuv::Map{{"limits", zuv::MakeVector(1, 2, 3)},
                    {"name", "gate"},
                    {"nested", zuv::Map{{"deep", zuv::Blob{1, 2, 3}}, {"off", false}}}};
}

/// `GetPolicy` or `GetProductSettings`, with what tells them apart.
struct TreeRow {
    const char* function;
    unsigned open;
    int (*get)(proxy::ZamDataProviderProxy&, unsigned long&, zuv::TValue&);
};

constexpr TreeRow kTreeRows[] = {
    {"GetPolicy", test::kOpenPolicyChannel,
     [](proxy::ZamDataProviderProxy& proxy, unsigned long& hash, zuv::TValue& tree) {
         Policy policy{hash, {tree}};
         const int code = proxy.GetPolicy(policy);
         hash = policy.first;
         tree = policy.second.tree;
         return code;
     }},
    {"GetProductSettings", test::kOpenSettingsChannel,
     [](proxy::ZamDataProviderProxy& proxy, unsigned long& hash, zuv::TValue& tree) {
         Settings settings{hash, {tree}};
         const int code = proxy.GetProductSettings(settings);
         hash = settings.first;
         tree = settings.second.tree;
         return code;
     }},
};

TEST(TreeTransfer, OpensPullsAsksAndClosesInThisOrder) {
    for (const TreeRow& row : kTreeRows) {
        SCOPED_TRACE(row.function);
        ProviderRig rig;
        rig.Give(SomeTree());
        ASSERT_EQ(rig.pieces.size(), 3U);
        unsigned long hash = 5;
        zuv::TValue tree = "before";
        EXPECT_EQ(row.get(rig.proxy, hash, tree), 0);
        EXPECT_EQ(tree, SomeTree());
        EXPECT_EQ(hash, rig.hash);
        EXPECT_THAT(rig.Operations(),
                    ElementsAre(row.open, test::kGetData, test::kGetData, test::kGetData,
                                test::kGetZamHash, test::kGetZamResult, test::kCloseChannel));
        EXPECT_THAT(rig.TakeLines(), IsEmpty());
    }
}

TEST(TreeTransfer, NamesItsChannelInEveryCallButTheFirst) {
    ProviderRig rig;
    rig.Give(SomeTree(), 100);
    Policy policy;
    rig.proxy.GetPolicy(policy);
    const auto calls = rig.transport.Calls();
    ASSERT_EQ(calls.size(), 5U);
    EXPECT_EQ(calls[0].request, testing::Bytes());
    for (std::size_t index = 1; index < calls.size(); ++index) {
        EXPECT_EQ(calls[index].request, test::kChannelBytes) << index;
    }
    for (const auto& call : calls) {
        EXPECT_EQ(call.requestHeader.riid, test::kProviderRiid);
        EXPECT_FALSE(call.hasRequestArena);
        EXPECT_EQ(call.hasResponseArena, call.requestHeader.operation == test::kGetData);
    }
}

TEST(TreeTransfer, OffersAnEmptyZeroArenaForEveryPiece) {
    ProviderRig rig;
    // The second piece is smaller than the first, which would leave its bytes behind.
    rig.pieces = {test::PieceOf({{test::Flattened(zuv::Map()).front().value, ""},
                                 {test::Flattened(std::string(50'000, 'x')).front().value, "a/"}}),
                  test::PieceOf({{test::Flattened(1).front().value, "b/"}}),
                  test::PieceOf({{test::Flattened(2).front().value, "c/"}})};
    Policy policy;
    EXPECT_EQ(rig.proxy.GetPolicy(policy), 0);
    EXPECT_EQ(policy.second.tree.Find("a")->Get<std::string>(), std::string(50'000, 'x'));
    const auto calls = rig.CallsOf(test::kGetData);
    ASSERT_EQ(calls.size(), 3U);
    for (const auto& call : calls) {
        EXPECT_EQ(call.responseArenaCapacity, 676'000U);
        EXPECT_EQ(call.responseArenaUsed, 0U);
        EXPECT_TRUE(call.responseArenaIsZero);
        EXPECT_THAT(call.response, ::testing::Each(0)) << "the response is not zero-filled";
    }
}

TEST(TreeTransfer, TakesAPieceThatFillsTheArena) {
    ProviderRig rig;
    // One byte for the version, one for the tag, 3 and 1 for the lengths, 8 of the payload word.
    const zuv::Blob blob(676'000 - 14, 0xA5);
    rig.Give(blob);
    ASSERT_EQ(rig.pieces[0].size(), 676'000U);
    Policy policy;
    EXPECT_EQ(rig.proxy.GetPolicy(policy), 0);
    EXPECT_TRUE(policy.second.tree == zuv::TValue(blob));
}

TEST(TreeTransfer, ReadsTheseBytes) {
    ProviderRig rig;
    rig.pieces = {std::string("\x01\x02\x08\x00\0\0\0\0\0\0\0\0", 12),
                  std::string("\x01\x06\x08\x02\x2A\0\0\0\0\0\0\0b/", 14)};
    Policy policy;
    EXPECT_EQ(rig.proxy.GetPolicy(policy), 0);
    EXPECT_EQ(policy.second.tree, zuv::TValue(zuv::Map{{"b", 42}}));
}

TEST(TreeTransfer, EndsWithALastPieceInTheFirstRoundAndKeepsIt) {
    ProviderRig rig;
    rig.Give(SomeTree(), 100);
    Policy policy;
    EXPECT_EQ(rig.proxy.GetPolicy(policy), 0);
    EXPECT_EQ(rig.CallsOf(test::kGetData).size(), 1U);
    EXPECT_EQ(policy.second.tree, SomeTree());
}

TEST(TreeTransfer, TakesPiecesWithoutRecords) {
    ProviderRig rig;
    rig.Give(SomeTree(), 100);
    rig.pieces.insert(rig.pieces.begin(), "");
    rig.pieces.emplace_back("");
    Policy policy;
    EXPECT_EQ(rig.proxy.GetPolicy(policy), 0);
    EXPECT_EQ(policy.second.tree, SomeTree());
    EXPECT_EQ(rig.CallsOf(test::kGetData).size(), 3U);
}

TEST(TreeTransfer, HasNoLimitOnThePieces) {
    ProviderRig rig;
    zuv::Vector numbers;
    for (int number = 0; number < 150; ++number) {
        numbers.emplace_back(number);
    }
    rig.Give(numbers, 1);
    Policy policy;
    EXPECT_EQ(rig.proxy.GetPolicy(policy), 0);
    EXPECT_EQ(policy.second.tree, zuv::TValue(numbers));
    EXPECT_EQ(rig.CallsOf(test::kGetData).size(), 151U);
}

TEST(TreeTransfer, BringsTreesOfEveryKind) {
    zam_test::RandomTrees trees(20);
    for (std::size_t round = 0; round < 60; ++round) {
        ProviderRig rig;
        const zuv::TValue tree = trees.Next();
        rig.Give(tree, 1 + round % 12);
        Policy policy;
        ASSERT_EQ(rig.proxy.GetPolicy(policy), 0);
        ASSERT_TRUE(policy.second.tree.IsIdenticalTo(tree));
    }
}

TEST(TreeTransfer, HandsOnTheServicesResultAndKeepsTheTree) {
    for (const TreeRow& row : kTreeRows) {
        for (const int result : test::kResultCodes) {
            SCOPED_TRACE(::testing::Message() << row.function << " " << result);
            ProviderRig rig;
            rig.Give(SomeTree());
            rig.result = result;
            unsigned long hash = 5;
            zuv::TValue tree = "before";
            EXPECT_EQ(row.get(rig.proxy, hash, tree), result);
            EXPECT_EQ(tree, SomeTree());
            EXPECT_EQ(hash, rig.hash);
            EXPECT_THAT(rig.TakeLines(), IsEmpty());
        }
    }
}

TEST(TreeTransfer, TakesStatusOneForSuccessInEveryCall) {
    ProviderRig rig;
    rig.Give(SomeTree(), 100);
    rig.result = 3;
    for (const unsigned operation :
         {test::kOpenPolicyChannel, test::kGetZamHash, test::kGetZamResult, test::kCloseChannel}) {
        rig.Fail(operation, {.session = 1});
    }
    Policy policy;
    EXPECT_EQ(rig.proxy.GetPolicy(policy), 3);
    EXPECT_EQ(policy.second.tree, SomeTree());
    EXPECT_EQ(policy.first, rig.hash);
    EXPECT_THAT(rig.TakeLines(), IsEmpty());
}

TEST(GetDataFromChannel, WritesTreeHashAndResultAndLeavesTheChannelOpen) {
    ProviderRig rig;
    rig.Give(SomeTree(), 100);
    rig.result = -7;
    zuv::TValue tree;
    unsigned long hash = 5;
    int result = 6;
    EXPECT_EQ(rig.proxy.GetDataFromChannel(-2, tree, hash, result), 0);
    EXPECT_EQ(tree, SomeTree());
    EXPECT_EQ(hash, rig.hash);
    EXPECT_EQ(result, -7);
    EXPECT_THAT(rig.Operations(),
                ElementsAre(test::kGetData, test::kGetZamHash, test::kGetZamResult));
    for (const auto& call : rig.transport.Calls()) {
        EXPECT_EQ(call.request, (testing::Bytes{0xFE, 255, 255, 255, 255, 255, 255, 255}));
    }
}

}  // namespace
}  // namespace zam_connector
