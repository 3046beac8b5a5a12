#pragma once

#include <memory>
#include <vector>

#include "qor/mutex.h"

namespace zam_connector::proxy {

/// What the threads of a run use and do not own, the transports of a connector that was dropped
/// before all. It goes when the last that holds this object lets go; no lock is held then, so its
/// destructors may do as they like. Thread-safe.
class KeptObjects {
public:
    /// Throws `std::bad_alloc`.
    void Add(const std::shared_ptr<const void>& object) {
        qor::MutexLock lock(mutex_);
        objects_.push_back(object);
    }

private:
    qor::Mutex mutex_;  // a leaf
    std::vector<std::shared_ptr<const void>> objects_ QOR_GUARDED_BY(mutex_);
};

}  // namespace zam_connector::proxy
