#pragma once

#include <functional>
#include <string>

#include "exchanges.h"
#include "ping_pong.h"
#include "process.h"
#include "support/temporary_folder.h"
#include "zuv/value.h"

namespace zam_bench {

/// The floor of an upload: a process that takes its bytes over a bare socket and does with the tree
/// what has to be done, once: rebuilds it from its list, hashes it, writes it as typed JSON to a
/// file, and returns when that has its name and is on the disk.
class BareUploadServer {
public:
    /// Keeps the file where the environment says that temporary files are.
    explicit BareUploadServer(const zuv::TValue& tree);

    pid_t Pid() const noexcept { return child_.Pid(); }

    /// What the client has to do: encodes the tree, and sends the bytes. Throws
    /// `std::runtime_error` when the process is gone.
    std::function<void()> Client() const;

private:
    const zuv::TValue& tree_;
    const ParamList list_;
    const Exchanges exchanges_;
    const zam_test::TemporaryFolder folder_;
    SocketPair sockets_;
    Child child_;
};

}  // namespace zam_bench
