#include "policy_tree.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace zam_bench {
namespace {

constexpr std::uint64_t kSeed = 20240229;
constexpr std::size_t kNodesPerContainer = 10;
constexpr unsigned kMaxDepth = 6;

constexpr std::array<std::string_view, 16> kWords{
    "enabled",  "mode",   "timeout", "limit",    "name",  "schedule",   "list",    "exclusions",
    "interval", "server", "update",  "settings", "scope", "components", "version", "action"};

/// A container before its children are made.
struct Container {
    unsigned depth;
    std::vector<std::size_t> containers;
    std::size_t leaves = 0;
};

class PolicyMaker {
public:
    explicit PolicyMaker(std::size_t nodes) : random_(kSeed) {
        containers_.push_back({1, {}});
        const std::size_t count = std::max<std::size_t>(nodes / kNodesPerContainer, 2);
        while (containers_.size() < count) {
            const std::size_t parent = Below(containers_.size());
            if (containers_[parent].depth < kMaxDepth - 1) {
                containers_[parent].containers.push_back(containers_.size());
                containers_.push_back({containers_[parent].depth + 1, {}});
            }
        }
        for (std::size_t leaf = count; leaf < nodes; ++leaf) {
            ++containers_[1 + Below(count - 1)].leaves;
        }
    }

    /// Makes each node when its place in the walk comes, as a reader of a policy does.
    zuv::TValue Make(std::size_t index = 0) {
        const Container& container = containers_[index];
        std::vector<std::optional<std::size_t>> children(container.containers.begin(),
                                                         container.containers.end());
        children.resize(children.size() + container.leaves);
        std::shuffle(children.begin(), children.end(), random_);
        if (index != 0 && Below(8) == 0) {
            zuv::Vector vector;
            for (const auto& child : children) {
                vector.push_back(child ? Make(*child) : Leaf());
            }
            return vector;
        }
        std::vector<std::string> keys;
        for (std::size_t number = 0; number < children.size(); ++number) {
            keys.push_back(std::string(kWords[Below(kWords.size())]) + '_' +
                           std::to_string(number));
        }
        std::sort(keys.begin(), keys.end());
        zuv::Map map;
        for (std::size_t number = 0; number < children.size(); ++number) {
            const auto& child = children[number];
            map.try_emplace(map.end(), keys[number], child ? Make(*child) : Leaf());
        }
        return map;
    }

private:
    std::size_t Below(std::size_t bound) { return random_() % bound; }

    zuv::TValue Leaf() {
        const std::size_t draw = Below(90);
        if (draw < 40) {
            std::string text(8 + Below(33), ' ');
            for (char& character : text) {
                character = static_cast<char>('a' + Below(26));
            }
            return text;
        }
        if (draw < 55) {
            return static_cast<int>(Below(100'000));
        }
        if (draw < 70) {
            return static_cast<long>(Below(1'000'000'000'000));
        }
        if (draw < 80) {
            return Below(2) == 0;
        }
        if (draw < 85) {
            return static_cast<double>(Below(1'000'000)) / 128;
        }
        zuv::Blob blob(16 + Below(241));
        for (unsigned char& byte : blob) {
            byte = static_cast<unsigned char>(random_());
        }
        return blob;
    }

    std::mt19937_64 random_;
    std::vector<Container> containers_;
};

}  // namespace

zuv::TValue MakePolicyTree(std::size_t nodes) {
    return PolicyMaker(nodes).Make();
}

}  // namespace zam_bench
