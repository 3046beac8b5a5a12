#pragma once

#include <cstddef>
#include <cstdint>
#include <random>

#include "zuv/path.h"
#include "zuv/value.h"

namespace zam_test {

/// Which keys a random tree has.
enum class TreeKeys {
    Flat,  ///< such as a path can hold: not empty, no digit in front, nothing reserved
    Any,   ///< any bytes, the empty text included
};

/// Makes trees of every kind, the same ones for the same seed.
class RandomTrees {
public:
    explicit RandomTrees(std::uint64_t seed, TreeKeys keys = TreeKeys::Flat)
        : random_(seed), keys_(keys) {}

    /// A tree of at most `nodes` nodes, often far fewer. Every kind is as likely as every other,
    /// and the values lie at the limits of their kinds more often than chance would have it.
    zuv::TValue Next(std::size_t nodes = 60);

    /// A path of up to 6 levels.
    zuv::Path NextPath();

    /// A number below `bound`, which is not 0.
    std::size_t Below(std::size_t bound);

private:
    zuv::TValue Node(std::size_t& budget, unsigned depth);
    zuv::TValue Leaf(zuv::Kind kind);
    std::string Text();
    std::string Key();
    std::uint64_t Word();

    std::mt19937_64 random_;
    TreeKeys keys_;
};

}  // namespace zam_test
