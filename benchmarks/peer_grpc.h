#pragma once

#if ZAM_BENCH_GRPC

#include <string>

#include "process.h"
#include "subject.h"
#include "zuv/value.h"

namespace zam_bench {

/// A process that serves a tree over gRPC on a Unix socket: a `google.protobuf.Value`, encoded
/// beforehand, in a stream of pieces of 64 KiB.
class GrpcServer {
public:
    explicit GrpcServer(const zuv::TValue& tree);

    const std::string& Address() const noexcept { return address_; }

private:
    std::string address_;
    Child process_;
};

/// Pulls the tree and decodes it. To be called in the client's process: gRPC's threads do not
/// survive a fork.
Work GrpcPullWork(const GrpcServer& server);

}  // namespace zam_bench

#endif
