#pragma once

#include <memory>

namespace zam_connector::proxy {

/// A pipeline as the subscriber proxy that owns it sees it. Operations return a result code;
/// `Start` and `Stop` are called by one thread at a time.
template <typename Manager>
class IDataHandler {
public:
    virtual ~IDataHandler() = default;

    /// 0, too, when it runs already.
    virtual int Start(std::weak_ptr<Manager> manager) = 0;

    /// 0, too, when it does not run.
    virtual int Stop() = 0;

    /// Keeps `object` for the threads that run now, until the last of them has ended: what they
    /// use and do not own. Thread-safe.
    virtual void KeepForThreads(const std::shared_ptr<const void>& object) { (void)object; }
};

}  // namespace zam_connector::proxy
