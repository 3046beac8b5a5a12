#include "tree_peers.h"

namespace zam_bench {

std::vector<std::unique_ptr<TreePeer>> MakeTreePeers() {
    std::vector<std::unique_ptr<TreePeer>> peers;
    peers.push_back(MakeNlohmannPeer());
#if ZAM_BENCH_PROTOBUF
    peers.push_back(MakeProtobufPeer());
#endif
#if ZAM_BENCH_BOOST_JSON
    peers.push_back(MakeBoostJsonPeer());
#endif
#if ZAM_BENCH_MSGPACK
    peers.push_back(MakeMsgpackPeer());
#endif
    return peers;
}

}  // namespace zam_bench
