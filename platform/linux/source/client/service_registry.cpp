#include "client/service_registry.h"

#include <pthread.h>

#include <utility>

#include "client/call_bounds.h"
#include "zam_platform/channel.h"
#include "zam_platform/posix_error.h"
#include "zam_platform/runtime_directory.h"

namespace zam_platform {

ServiceRegistry& ServiceRegistry::Instance() {
    // Never destroyed: transports may be used until the process has ended.
    static auto* const instance = new ServiceRegistry();
    return *instance;
}

ServiceRegistry::ServiceRegistry() {
    const int error = ::pthread_atfork(&PrepareFork, &ContinueParent, &ContinueChild);
    if (error != 0) {
        throw PosixError("handlers around fork", error);
    }
}

std::uint32_t ServiceRegistry::Connect(const std::string& name) {
    CheckServiceName(name);
    std::uint32_t handle = 0;
    // Opened once more by each connection: the directory may be replaced while the process runs.
    FindOrAdd(RuntimeDirectoryPath(), name, handle).Open(CallBounds());
    return handle;
}

ServiceLink& ServiceRegistry::FindOrAdd(const std::string& directory, const std::string& name,
                                        std::uint32_t& handle) {
    const std::string path = directory + '/' + name;
    const qor::MutexLock lock(mutex_);
    for (handle = 0; handle < entries_.size(); ++handle) {
        if (entries_[handle].path == path) {
            return *entries_[handle].link;
        }
    }
    entries_.push_back({path, std::make_unique<ServiceLink>(MakeChannelFactory(directory, name))});
    return *entries_.back().link;
}

ServiceLink* ServiceRegistry::Find(std::uint32_t handle) {
    const qor::MutexLock lock(mutex_);
    return handle < entries_.size() ? entries_[handle].link.get() : nullptr;
}

void ServiceRegistry::PrepareFork() QOR_NO_THREAD_SAFETY_ANALYSIS {
    ServiceRegistry& registry = Instance();
    registry.mutex_.lock();
    for (const Entry& entry : registry.entries_) {
        entry.link->LockForFork();
    }
}

void ServiceRegistry::ContinueParent() QOR_NO_THREAD_SAFETY_ANALYSIS {
    ServiceRegistry& registry = Instance();
    for (const Entry& entry : registry.entries_) {
        entry.link->UnlockInParent();
    }
    registry.mutex_.unlock();
}

void ServiceRegistry::ContinueChild() QOR_NO_THREAD_SAFETY_ANALYSIS {
    ServiceRegistry& registry = Instance();
    for (const Entry& entry : registry.entries_) {
        entry.link->RestartInChild();
    }
    registry.mutex_.unlock();
    // Whoever bounded this thread's calls may have been held by a thread that the child does not
    // have.
    VdZorTransport_SetCallBounds(nullptr);
}

}  // namespace zam_platform
