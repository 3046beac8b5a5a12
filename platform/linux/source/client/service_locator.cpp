#include "vd/service_locator.h"

#include <exception>
#include <string>

#include "client/call_bounds.h"
#include "client/service_registry.h"
#include "vd/zor_transport.h"
#include "zam_platform/posix_error.h"
#include "zam_platform/report.h"

namespace {

constexpr char kSourceFile[] = "service_locator";

}  // namespace

uint32_t ServiceLocatorConnect(const char* name) {
    try {
        return zam_platform::ServiceRegistry::Instance().Connect(name == nullptr ? "" : name);
    } catch (const std::exception& exception) {
        const auto* const known = dynamic_cast<const zam_platform::PlatformError*>(&exception);
        zam_platform::Report(zor::logger::kLevelError, kSourceFile, "ServiceLocatorConnect",
                             exception.what());
        // Behind the record: a logger may make calls of its own for it.
        zam_platform::EndCall(known == nullptr ? zam_platform::kStatusResources : known->Status());
        return VD_ZOR_INVALID_HANDLE;
    }
}

uint16_t ServiceLocatorGetRiid(uint32_t handle, const char* endpoint) {
    zam_platform::ServiceLink* const link = zam_platform::ServiceRegistry::Instance().Find(handle);
    return link == nullptr
               ? VD_UNKNOWN_RIID
               : link->Lookup(endpoint == nullptr ? "" : endpoint, zam_platform::CallBounds());
}
