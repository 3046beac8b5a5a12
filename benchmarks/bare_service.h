#pragma once

#include <string>

#include "process.h"
#include "zam_platform/unique_fd.h"

namespace zam_bench {

/// A process that takes connections on a Unix socket and answers look-ups on two of them at a time.
class BareService {
public:
    explicit BareService(std::string path);
    BareService(const BareService&) = delete;
    BareService& operator=(const BareService&) = delete;
    ~BareService();

    const std::string& Path() const noexcept { return path_; }
    pid_t Pid() const noexcept { return child_.Pid(); }

private:
    const std::string path_;
    zam_platform::UniqueFd listener_;
    Child child_;
};

}  // namespace zam_bench
