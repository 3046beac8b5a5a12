#include "zam_connector_testing/scripted_platform.h"

#include <atomic>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "vd/call_bounds.h"
#include "vd/runtime_directory.h"
#include "vd/transport_features.h"

namespace zam_connector::testing {
namespace {

std::atomic<ScriptedPlatform*> g_platform{nullptr};

int FailWithoutHandle(VdZorTransport* /*transport*/, vd_message_header* /*request*/,
                      vd_arena* /*requestArena*/, vd_message_header* /*response*/,
                      vd_arena* /*responseArena*/) {
    *VdZorTransport_LastStatus() = kNoHandleStatus;
    return kNoHandleStatus;
}

constexpr VdZorTransportOps kFailingOps{&FailWithoutHandle};

/// What `VdZorTransport_Init` leaves behind for a handle that is no good.
void InitWithoutHandle(VdZorTransport* transport) {
    *transport = VdZorTransport{};
    transport->ops = &kFailingOps;
    transport->handle = VD_ZOR_INVALID_HANDLE;
}

template <typename Map>
typename Map::mapped_type Find(const Map& map, const typename Map::key_type& key,
                               typename Map::mapped_type otherwise) {
    const auto found = map.find(key);
    return found == map.end() ? otherwise : found->second;
}

std::string NameOf(const char* text) {
    return text == nullptr ? std::string() : std::string(text);
}

}  // namespace

ScriptedPlatform::ScriptedPlatform() {
    ScriptedPlatform* none = nullptr;
    if (!g_platform.compare_exchange_strong(none, this)) {
        throw std::logic_error("a process has one scripted platform at a time");
    }
}

ScriptedPlatform::~ScriptedPlatform() {
    g_platform = nullptr;
}

void ScriptedPlatform::SetHandle(const std::string& service, std::uint32_t handle) {
    const std::lock_guard lock(mutex_);
    handles_[service] = handle;
}

void ScriptedPlatform::SetRiid(const std::string& endpoint, std::uint16_t riid) {
    const std::lock_guard lock(mutex_);
    riids_[endpoint] = riid;
}

void ScriptedPlatform::SetTransport(std::uint32_t handle, ScriptedTransport* transport) {
    const std::lock_guard lock(mutex_);
    transports_[handle] = transport;
}

void ScriptedPlatform::SetInitFault(std::uint32_t handle, InitFault fault) {
    const std::lock_guard lock(mutex_);
    initFaults_.insert_or_assign(handle, fault);
}

std::vector<PlatformCall> ScriptedPlatform::Calls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
}

std::uint32_t ScriptedPlatform::Connect(const char* name) {
    PlatformCall call;
    call.function = PlatformCall::Function::ServiceLocatorConnect;
    call.name = NameOf(name);
    const std::lock_guard lock(mutex_);
    const std::uint32_t handle = Find(handles_, call.name, VD_ZOR_INVALID_HANDLE);
    calls_.push_back(std::move(call));
    return handle;
}

std::uint16_t ScriptedPlatform::GetRiid(std::uint32_t handle, const char* endpoint) {
    PlatformCall call;
    call.function = PlatformCall::Function::ServiceLocatorGetRiid;
    call.name = NameOf(endpoint);
    call.handle = handle;
    const std::lock_guard lock(mutex_);
    const std::uint16_t riid = Find(riids_, call.name, VD_UNKNOWN_RIID);
    calls_.push_back(std::move(call));
    return riid;
}

void ScriptedPlatform::InitTransport(VdZorTransport* transport, std::uint32_t handle,
                                     std::uint32_t timeoutMs, std::uint32_t flags) {
    PlatformCall call;
    call.function = PlatformCall::Function::VdZorTransportInit;
    call.handle = handle;
    call.transport = transport;
    call.timeoutMs = timeoutMs;
    call.flags = flags;
    const std::lock_guard lock(mutex_);
    calls_.push_back(std::move(call));
    InitWithoutHandle(transport);
    const auto fault = initFaults_.find(handle);
    if (fault != initFaults_.end()) {
        if (fault->second == InitFault::NoOps) {
            transport->ops = nullptr;
            transport->handle = handle;
        }
        return;
    }
    ScriptedTransport* const target = Find(transports_, handle, nullptr);
    if (target != nullptr) {
        target->Attach(transport);
        transport->handle = handle;
        transport->timeoutMs = timeoutMs;
        transport->flags = flags;
    }
}

void ScriptedPlatform::SetFarewell(const VdZorTransport* transport, std::uint16_t riid,
                                   std::uint16_t operation) {
    PlatformCall call;
    call.function = PlatformCall::Function::VdZorTransportSetFarewell;
    call.transport = transport;
    call.riid = riid;
    call.operation = operation;
    const std::lock_guard lock(mutex_);
    calls_.push_back(std::move(call));
}

/// The platform's functions, for the one object or for none.
struct PlatformFunctions {
    static std::uint32_t Connect(const char* name) {
        ScriptedPlatform* const platform = g_platform;
        return platform == nullptr ? VD_ZOR_INVALID_HANDLE : platform->Connect(name);
    }

    static std::uint16_t GetRiid(std::uint32_t handle, const char* endpoint) {
        ScriptedPlatform* const platform = g_platform;
        return platform == nullptr ? VD_UNKNOWN_RIID : platform->GetRiid(handle, endpoint);
    }

    static void Init(VdZorTransport* transport, std::uint32_t handle, std::uint32_t timeoutMs,
                     std::uint32_t flags) {
        ScriptedPlatform* const platform = g_platform;
        if (platform == nullptr) {
            InitWithoutHandle(transport);
            return;
        }
        platform->InitTransport(transport, handle, timeoutMs, flags);
    }

    static void SetFarewell(const VdZorTransport* transport, std::uint16_t riid,
                            std::uint16_t operation) {
        ScriptedPlatform* const platform = g_platform;
        if (platform != nullptr) {
            platform->SetFarewell(transport, riid, operation);
        }
    }
};

}  // namespace zam_connector::testing

// These share a file with the class, so that whoever uses the class gets them too: a linker takes
// the members of an archive one by one.

using zam_connector::testing::PlatformFunctions;

std::uint32_t ServiceLocatorConnect(const char* name) {
    return PlatformFunctions::Connect(name);
}

std::uint16_t ServiceLocatorGetRiid(std::uint32_t handle, const char* endpoint) {
    return PlatformFunctions::GetRiid(handle, endpoint);
}

void VdZorTransport_Init(VdZorTransport* transport, std::uint32_t handle, std::uint32_t timeoutMs,
                         std::uint32_t flags) {
    PlatformFunctions::Init(transport, handle, timeoutMs, flags);
}

void VdZorTransport_SetFarewell(VdZorTransport* transport, std::uint16_t riid,
                                std::uint16_t operation) {
    PlatformFunctions::SetFarewell(transport, riid, operation);
}

vd::RuntimeDirectoryDiagnosis vd::DiagnoseRuntimeDirectory(
    const std::vector<std::string>& /*services*/) {
    return {};
}

/// Scripted calls end when the script says so.
VdCallBounds* VdZorTransport_SetCallBounds(VdCallBounds* /*bounds*/) {
    return nullptr;
}

std::uint32_t VdZorTransport_Features(const VdZorTransport* /*transport*/) {
    return 0;
}

void VdZorTransport_Statistics(const VdZorTransport* /*transport*/,
                               VdTransportStatistics* statistics) {
    std::memset(reinterpret_cast<unsigned char*>(statistics) + sizeof(statistics->size), 0,
                statistics->size - sizeof(statistics->size));
}
