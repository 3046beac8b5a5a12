#pragma once

#include <cstdint>

namespace zam_service {

/// Numbers for channels: above 0, rising, and other ones in every run of the service, so that what
/// a client opened before a restart is not taken for a channel of today. One thread at a time.
class ChannelIds {
public:
    ChannelIds();

    std::int64_t Next() noexcept { return ++last_; }

private:
    std::int64_t last_;
};

}  // namespace zam_service
