#pragma once

#include <google/protobuf/struct.pb.h>

#include "zuv/value.h"

namespace zam_bench {

/// A tree as protobuf's own kind of tree, to the peer's advantage where it has no such value.
void FillProtobuf(google::protobuf::Value& to, const zuv::TValue& tree);

}  // namespace zam_bench
