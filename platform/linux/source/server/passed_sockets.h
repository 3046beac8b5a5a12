#pragma once

#include <sys/types.h>

#include <string>

#include "zam_platform/runtime_directory.h"
#include "zam_platform/unique_fd.h"

/// Sockets that listened before this process was started, as service managers pass them: the
/// descriptors from 3 on, counted by LISTEN_FDS, when LISTEN_PID is this process.

namespace zam_platform {

/// The descriptors that were passed.
struct PassedDescriptors {
    int first = 0;
    int count = 0;
};

/// Reads the two variables; nothing was passed when one of them is missing or no number, when they
/// are meant for another process, or in a set-user-id program.
PassedDescriptors PassedByEnvironment(pid_t process);

/// A copy of the passed descriptor that listens at `name` in `directory`, ready for the server;
/// empty when there is none. The descriptor itself stays open, so that a second daemon of the same
/// process finds it again. Throws `PlatformError` when what was passed for this name takes no
/// connections of streams.
UniqueFd PassedSocket(const RuntimeDirectory& directory, const std::string& name,
                      const PassedDescriptors& passed);

}  // namespace zam_platform
