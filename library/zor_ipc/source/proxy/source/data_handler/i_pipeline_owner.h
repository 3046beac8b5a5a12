#pragma once

#include <memory>

namespace zam_connector::proxy {

/// An implementation of a client interface that has threads of its own.
class IPipelineOwner {
public:
    virtual ~IPipelineOwner() = default;

    /// Keeps `object` for the handler threads that run now, until the last of them has ended.
    /// Thread-safe.
    virtual void KeepForThreads(const std::shared_ptr<const void>& object) = 0;
};

}  // namespace zam_connector::proxy
