#include "param_list.h"

#include <stdexcept>
#include <string>
#include <utility>

#include "zuv/path.h"

namespace zam_bench {
namespace {

/// Limits of a piece on its way over a channel.
constexpr std::size_t kPieceRecords = 10;
constexpr std::size_t kPieceWeight = 675'999;

void Require(const std::pair<int, std::string>& result) {
    if (result.first != 0) {
        throw std::runtime_error(result.second);
    }
}

}  // namespace

ParamList Flatten(const zuv::TValue& tree) {
    ParamList list;
    Require(zam_connector::common::Serialize(zuv::Root, tree, list));
    return list;
}

zuv::TValue Rebuild(const ParamList& list) {
    zuv::Path root;
    zuv::TValue tree;
    Require(zam_connector::common::Deserialize(list, root, tree));
    return tree;
}

std::vector<std::span<const zam_connector::common::RawZamParam>> Cut(const ParamList& list) {
    std::vector<std::span<const zam_connector::common::RawZamParam>> pieces;
    for (std::size_t begin = 0; begin < list.size();) {
        std::size_t end = begin;
        for (std::size_t weight = 0; end < list.size() && end - begin < kPieceRecords; ++end) {
            weight += zam_connector::common::WeightOf(list[end]);
            if (weight > kPieceWeight) {
                break;
            }
        }
        pieces.push_back(std::span(list).subspan(begin, end - begin));
        begin = end;
    }
    return pieces;
}

}  // namespace zam_bench
