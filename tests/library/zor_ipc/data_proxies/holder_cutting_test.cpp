#include <algorithm>
#include <numeric>
#include <random>

#include "data_rig.h"
#include "support/random_tree.h"

namespace zam_connector {
namespace {

using test::HolderRig;
using test::Lines;
using test::List;
using ::testing::IsEmpty;

using Sizes = std::vector<std::size_t>;

constexpr std::size_t kMaxWeight = 675'999;
constexpr std::size_t kHeader = 16;  ///< bytes of a value block before its data
constexpr std::size_t kRootWeight = kHeader;

std::size_t Weight(const common::RawZamParam& record) {
    return record.value.size() + record.path.size();
}

/// A vector whose elements have these weights; the root's record comes before theirs.
zuv::TValue TreeOfWeights(const Sizes& weights) {
    zuv::Vector vector;
    for (std::size_t index = 0; index < weights.size(); ++index) {
        const std::size_t path = std::to_string(index).size() + 1;
        vector.emplace_back(zuv::Blob(weights[index] - kHeader - path, 0xA5));
    }
    return vector;
}

/// The sizes of the pieces of a list, found the plain way: each record tries whether it still goes.
Sizes Cut(const List& list) {
    Sizes sizes;
    std::size_t sum = 0;
    for (const auto& record : list) {
        const std::size_t weight = Weight(record);
        if (sizes.empty() || sizes.back() == 10 || sum + weight > kMaxWeight) {
            sizes.push_back(0);
            sum = 0;
        }
        sum += weight;
        ++sizes.back();
    }
    return sizes;
}

/// Sends a tree; checks that all of it arrives, in pieces that keep every bound.
Sizes Send(const zuv::TValue& tree) {
    HolderRig rig;
    unsigned long hash = 0;
    EXPECT_EQ(rig.proxy.SetSettings({tree}, hash), 0);
    EXPECT_EQ(hash, rig.hash);
    EXPECT_THAT(rig.TakeLines(), IsEmpty());
    EXPECT_TRUE(rig.Sent() == test::Flattened(tree));
    const auto calls = rig.CallsOf(test::kSendData);
    const auto pieces = rig.Pieces();
    for (std::size_t index = 0; index < pieces.size(); ++index) {
        std::size_t weight = 0;
        for (const auto& record : pieces[index]) {
            weight += Weight(record);
        }
        EXPECT_LE(weight, kMaxWeight);
        EXPECT_LE(pieces[index].size(), 10U);
        // One byte for the version, and one less than its weight for each record at most.
        EXPECT_LE(calls[index].requestArena.size(), weight + 1 - pieces[index].size());
        EXPECT_EQ(calls[index].requestArenaCapacity, 676'000U);
    }
    return rig.PieceSizes();
}

TEST(Cutting, CountsRecords) {
    struct {
        std::size_t records;
        Sizes pieces;
    } const rows[] = {
        {1, {1}},      {2, {2}},       {9, {9}},          {10, {10}},        {11, {10, 1}},
        {19, {10, 9}}, {20, {10, 10}}, {21, {10, 10, 1}}, {25, {10, 10, 5}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.records);
        EXPECT_EQ(Send(TreeOfWeights(Sizes(row.records - 1, 20))), row.pieces);
    }
}

/// The root and nine small elements, which fill a piece, and then these.
zuv::TValue TreeBehindAFullPiece(const Sizes& weights) {
    Sizes all(9, 20);
    all.insert(all.end(), weights.begin(), weights.end());
    return TreeOfWeights(all);
}

TEST(Cutting, SumsWeights) {
    struct {
        Sizes weights;
        Sizes pieces;
    } const rows[] = {
        {{400'000, 300'000}, {10, 1, 1}},
        {{300'000, 375'998}, {10, 2}},
        {{300'000, 375'999}, {10, 2}},
        {{300'000, 376'000}, {10, 1, 1}},
        {{675'999}, {10, 1}},
        {{675'999, 20}, {10, 1, 1}},
        {{675'979, 20}, {10, 2}},
        {{675'980, 20}, {10, 1, 1}},
        {{400'000, 300'000, 300'000}, {10, 1, 2}},
        {{600'000, 100'000, 20}, {10, 1, 2}},
        {{20, 675'999, 20}, {10, 1, 1, 1}},
        {{225'333, 225'333, 225'333}, {10, 3}},
        {{225'333, 225'334, 225'333}, {10, 2, 1}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.weights));
        EXPECT_EQ(Send(TreeBehindAFullPiece(row.weights)), row.pieces);
    }
}

TEST(Cutting, WeighsTheRootToo) {
    EXPECT_EQ(Send(TreeOfWeights({kMaxWeight - kRootWeight - 1})), Sizes{2});
    EXPECT_EQ(Send(TreeOfWeights({kMaxWeight - kRootWeight})), Sizes{2});
    EXPECT_EQ(Send(TreeOfWeights({kMaxWeight - kRootWeight + 1})), (Sizes{1, 1}));
}

TEST(Cutting, MeetsBothBoundsAtOnce) {
    // The root and nine elements come to exactly the largest weight.
    Sizes weights(9, 75'109);
    weights.back() += 2;
    ASSERT_EQ(std::accumulate(weights.begin(), weights.end(), kRootWeight), kMaxWeight);
    EXPECT_EQ(Send(TreeOfWeights(weights)), Sizes{10});
    ++weights.back();
    EXPECT_EQ(Send(TreeOfWeights(weights)), (Sizes{9, 1}));
}

TEST(Cutting, WeighsPathsInBytes) {
    // Three bytes of key, one of its separator.
    const std::string key = "\xE2\x82\xAC";
    const auto tree = [&key](std::size_t blob) {
        return zuv::TValue(zuv::Map{{key, zuv::Blob(blob, 1)}});
    };
    const std::size_t largest = kMaxWeight - kRootWeight - kHeader - 4;
    EXPECT_EQ(Send(tree(largest)), Sizes{2});
    EXPECT_EQ(Send(tree(largest + 1)), (Sizes{1, 1}));
}

TEST(Cutting, SendsASingleValueOfTheLargestWeight) {
    EXPECT_EQ(Send(zuv::Blob(kMaxWeight - kHeader - 1, 1)), Sizes{1});
    EXPECT_EQ(Send(zuv::Blob(kMaxWeight - kHeader, 1)), Sizes{1});
    // The closing zero of a string counts.
    EXPECT_EQ(Send(std::string(kMaxWeight - kHeader - 1, 's')), Sizes{1});
    EXPECT_EQ(Send(zuv::Map{{std::string(kMaxWeight - kHeader - 1, 'k'), 1}}), (Sizes{1, 1}));
}

/// The service refuses the piece with this number; what was sent before it.
Sizes SendOverweight(const zuv::TValue& tree, std::size_t refused) {
    HolderRig rig;
    rig.Fail(test::kSendData, {.session = -2}, refused);
    unsigned long hash = 5;
    EXPECT_EQ(rig.proxy.SetSettings({tree}, hash), test::kInvalidResult);
    EXPECT_EQ(hash, 5U);
    EXPECT_EQ(rig.TakeLines(), Lines{test::SessionLine("SendData", -2)});
    EXPECT_EQ(rig.Operations().back(), test::kCloseHolderChannel);
    for (const auto& call : rig.CallsOf(test::kSendData)) {
        if (call.requestArena.empty()) {
            EXPECT_EQ(call.request,
                      (testing::Bytes{8, 7, 6, 5, 4, 3, 2, 1, 0, 0, 0, 0, 0, 0, 0, 0}));
        }
    }
    return rig.PieceSizes();
}

TEST(OverweightRecord, SendsEmptyPiecesUntilTheServiceRefusesOne) {
    EXPECT_EQ(SendOverweight(zuv::Blob(kMaxWeight - kHeader + 1, 1), 40), Sizes(41, 0));
    EXPECT_EQ(SendOverweight(zuv::Blob(3 * kMaxWeight, 1), 3), Sizes(4, 0));
    EXPECT_EQ(SendOverweight(std::string(kMaxWeight - kHeader, 's'), 3), Sizes(4, 0));
    EXPECT_EQ(SendOverweight(TreeOfWeights({20, kMaxWeight + 1, 20}), 4), (Sizes{2, 0, 0, 0, 0}));
    EXPECT_EQ(SendOverweight(zuv::Map{{std::string(kMaxWeight - kHeader, 'k'), 1}}, 2),
              (Sizes{1, 0, 0}));
}

TEST(PieceOfATree, AlwaysFitsItsArenaAtTheWorst) {
    // Lengths of three bytes for value and path of every record, and the largest weight in all.
    for (std::size_t records = 1; records <= 9; ++records) {
        SCOPED_TRACE(records);
        zuv::Map map;
        std::size_t left = kMaxWeight - kRootWeight;
        for (std::size_t index = 0; index < records; ++index) {
            const std::string key =
                std::string(1, static_cast<char>('a' + index)) + std::string(16'384, 'k');
            const std::size_t weight = index + 1 == records ? left : left / (records - index);
            map[key] = zuv::Blob(weight - kHeader - key.size() - 1, 0xFF);
            left -= weight;
        }
        EXPECT_EQ(Send(map), Sizes{records + 1});
    }
}

/// Leaves with weights about the bounds, parted at random between value and path.
zuv::TValue RandomHeavyTree(std::mt19937_64& random) {
    const auto below = [&random](std::size_t bound) { return random() % bound; };
    constexpr std::size_t kWeights[] = {64,      150,     16'400,  32'800,         67'600,
                                        75'110,  84'500,  168'999, 225'333,        337'990,
                                        338'000, 450'000, 675'900, kMaxWeight - 40};
    zuv::Map map;
    const std::size_t leaves = 1 + below(24);
    for (std::size_t index = 0; index < leaves; ++index) {
        const std::size_t weight = kWeights[below(std::size(kWeights))] + below(40);
        const std::string name = "k" + std::to_string(index);
        const std::size_t spare = weight - kHeader - name.size() - 1;
        const std::size_t pad =
            below(2) == 0 ? below(std::min<std::size_t>(spare, 30)) : below(spare);
        map[name + std::string(pad, 'p')] =
            zuv::Blob(spare - pad, static_cast<unsigned char>(below(256)));
    }
    return map;
}

TEST(PieceOfATree, AlwaysFitsItsArenaAtRandom) {
    std::mt19937_64 random(7);
    for (int round = 0; round < 40; ++round) {
        SCOPED_TRACE(round);
        const zuv::TValue tree = RandomHeavyTree(random);
        EXPECT_EQ(Send(tree), Cut(test::Flattened(tree)));
    }
}

TEST(PieceOfATree, HoldsEveryKindOfValue) {
    zam_test::RandomTrees trees(21);
    for (int round = 0; round < 60; ++round) {
        SCOPED_TRACE(round);
        zuv::TValue tree = trees.Next(200);
        if (tree.Is<zuv::None>()) {
            tree = 1;
        }
        EXPECT_EQ(Send(tree), Cut(test::Flattened(tree)));
    }
}

}  // namespace
}  // namespace zam_connector
