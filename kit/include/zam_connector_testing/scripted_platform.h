#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "vd/service_locator.h"
#include "vd/zor_transport.h"
#include "zam_connector_testing/scripted_transport.h"

namespace zam_connector::testing {

struct PlatformFunctions;

/// One call of a platform function, in the members that the function has; the others are zero.
struct PlatformCall {
    enum class Function {
        ServiceLocatorConnect,      ///< name
        ServiceLocatorGetRiid,      ///< handle, name
        VdZorTransportInit,         ///< transport, handle, timeoutMs, flags
        VdZorTransportSetFarewell,  ///< transport, riid, operation
    };

    Function function{};
    std::string name;  ///< of the service or endpoint
    std::uint32_t handle = 0;
    const VdZorTransport* transport = nullptr;
    std::uint32_t timeoutMs = 0;
    std::uint32_t flags = 0;
    std::uint16_t riid = 0;
    std::uint16_t operation = 0;
};

/// How the initialisation of a transport goes wrong.
enum class InitFault {
    NoOps,     ///< `ops` stays null
    NoHandle,  ///< `handle` is all-ones and every call fails with `kNoHandleStatus`
};

/// Status of every call on a transport without a handle.
inline constexpr int kNoHandleStatus = -770005;

/// The platform of an executable that links `zam_scripted_platform`: the definitions of
/// `ServiceLocatorConnect`, `ServiceLocatorGetRiid`, `VdZorTransport_Init` and
/// `VdZorTransport_SetFarewell` in that library take the place of the platform's own in the whole
/// process, and ask the one object of this class that exists. So do those of
/// `vd::DiagnoseRuntimeDirectory`, `VdZorTransport_Features` and `VdZorTransport_Statistics`:
/// scripted services have neither a runtime directory nor a fast channel.
///
///     ScriptedTransport service;
///     ScriptedPlatform platform;
///     platform.SetHandle("zam_connector_id", 1);
///     platform.SetTransport(1, &service);
///     platform.SetRiid("qx.zam_connector.ZamConnectorComponent.connController", 7);
///
/// Without an object there are no services. Thread-safe; no platform function may be running when
/// the object is destroyed.
class ScriptedPlatform {
public:
    /// Throws `std::logic_error` when another object exists.
    ScriptedPlatform();
    ScriptedPlatform(const ScriptedPlatform&) = delete;
    ScriptedPlatform& operator=(const ScriptedPlatform&) = delete;
    ~ScriptedPlatform();

    /// The handle of a service; other names get the all-ones handle.
    void SetHandle(const std::string& service, std::uint32_t handle);

    /// The interface id of an endpoint, whatever the handle; other names get 0xFFFF.
    void SetRiid(const std::string& endpoint, std::uint16_t riid);

    /// Leads transports that are initialised on `handle` from now on to `transport`, which is not
    /// owned and must outlive their calls. Other handles fail as with `InitFault::NoHandle`.
    void SetTransport(std::uint32_t handle, ScriptedTransport* transport);

    /// Makes transports that are initialised on `handle` from now on fail; goes before
    /// `SetTransport`.
    void SetInitFault(std::uint32_t handle, InitFault fault);

    /// The calls so far, in order.
    std::vector<PlatformCall> Calls() const;

private:
    friend struct PlatformFunctions;  // the C functions, which are defined beside this class

    std::uint32_t Connect(const char* name);
    std::uint16_t GetRiid(std::uint32_t handle, const char* endpoint);
    void InitTransport(VdZorTransport* transport, std::uint32_t handle, std::uint32_t timeoutMs,
                       std::uint32_t flags);
    void SetFarewell(const VdZorTransport* transport, std::uint16_t riid, std::uint16_t operation);

    mutable std::mutex mutex_;  // guards what follows; a leaf
    std::map<std::string, std::uint32_t> handles_;
    std::map<std::string, std::uint16_t> riids_;
    std::map<std::uint32_t, ScriptedTransport*> transports_;
    std::map<std::uint32_t, InitFault> initFaults_;
    std::vector<PlatformCall> calls_;
};

}  // namespace zam_connector::testing
