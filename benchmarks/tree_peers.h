#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "zuv/value.h"

namespace zam_bench {

/// Another library that carries trees: what it makes of ours, and what its own encoding costs.
class TreePeer {
public:
    virtual ~TreePeer() = default;

    virtual const char* Name() const noexcept = 0;

    /// Takes over a tree, as the library's own kind of tree.
    virtual void Load(const zuv::TValue& tree) = 0;

    /// From its tree to bytes, kept until `Clear`.
    virtual void Encode() = 0;

    /// From the bytes of the last `Encode` to a new tree of its own, kept until `Clear`.
    virtual void Decode() = 0;

    virtual std::size_t EncodedBytes() const noexcept = 0;

    /// Lets go of the tree decoded.
    virtual void Clear() = 0;
};

std::unique_ptr<TreePeer> MakeNlohmannPeer();
#if ZAM_BENCH_PROTOBUF
std::unique_ptr<TreePeer> MakeProtobufPeer();
#endif
#if ZAM_BENCH_BOOST_JSON
std::unique_ptr<TreePeer> MakeBoostJsonPeer();
#endif
#if ZAM_BENCH_MSGPACK
std::unique_ptr<TreePeer> MakeMsgpackPeer();
#endif

/// All that this build has.
std::vector<std::unique_ptr<TreePeer>> MakeTreePeers();

}  // namespace zam_bench
