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

    /// Keeps `object`, which the threads use and do not own, until the pipeline has been stopped
    /// and the last of its threads has ended; a run that is started before shares it. Keeps nothing
    /// when none runs. Throws `std::bad_alloc`. Thread-safe.
    virtual void KeepForThreads(const std::shared_ptr<const void>& object) = 0;
};

}  // namespace zam_connector::proxy
