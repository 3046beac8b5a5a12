#include "proxy_init.h"

#include "qel/exception.h"
#include "vd/service_locator.h"
#include "vd/zor_transport.h"

namespace zam_connector::proxy::init {
namespace {

constexpr char kSourceFile[] = "proxy_init";
constexpr int kRiidLine = 17;
constexpr int kNameLine = 25;
constexpr int kHandleLine = 27;

}  // namespace

std::uint16_t GetEndpointRiid(std::uint32_t handle, const std::string& endpointName) {
    const std::uint16_t riid = ServiceLocatorGetRiid(handle, endpointName.c_str());
    if (riid == VD_UNKNOWN_RIID) {
        throw qel::CheckFailedException(kSourceFile, kRiidLine)
            << "ServiceLocator does not contain connection riid for " << endpointName;
    }
    return riid;
}

std::uint32_t ConnectIpcService(const std::string& serviceName) {
    if (serviceName.empty()) {
        throw qel::CheckFailedException(kSourceFile, kNameLine)
            << "Zam_ctr_proxy_factory: Service name is empty!";
    }
    const std::uint32_t handle = ServiceLocatorConnect(serviceName.c_str());
    if (handle == VD_ZOR_INVALID_HANDLE) {
        throw qel::CheckFailedException(kSourceFile, kHandleLine)
            << "Zam_ctr_proxy_factory: Handle for " << serviceName << " wasn't received!";
    }
    return handle;
}

}  // namespace zam_connector::proxy::init
