#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "client/service_link.h"
#include "qor/mutex.h"

namespace zam_platform {

/// The services that this process has connected to: one link, and one handle, per socket path.
/// Handles and links live as long as the process, so making and dropping connectors leaks nothing.
/// Thread-safe.
class ServiceRegistry {
public:
    static ServiceRegistry& Instance();

    ServiceRegistry(const ServiceRegistry&) = delete;
    ServiceRegistry& operator=(const ServiceRegistry&) = delete;

    /// Handle of the service `name` in the runtime directory, after one successful connection to
    /// it. Throws `PlatformError`.
    std::uint32_t Connect(const std::string& name) QOR_EXCLUDES(mutex_);

    /// The link of a handle; null when there is none.
    ServiceLink* Find(std::uint32_t handle) QOR_EXCLUDES(mutex_);

private:
    struct Entry {
        std::string path;
        std::unique_ptr<ServiceLink> link;
    };

    ServiceRegistry();

    static void PrepareFork();
    static void ContinueParent();
    static void ContinueChild();

    ServiceLink& FindOrAdd(const std::string& directory, const std::string& name,
                           std::uint32_t& handle) QOR_EXCLUDES(mutex_);

    // Lock order: this mutex, then those of the links in order of their handles.
    qor::Mutex mutex_;
    std::vector<Entry> entries_ QOR_GUARDED_BY(mutex_);  ///< a handle is an index
};

}  // namespace zam_platform
