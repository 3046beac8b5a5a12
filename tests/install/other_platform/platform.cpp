#include <cstring>

#include "vd/arena.h"
#include "vd/call_bounds.h"
#include "vd/runtime_directory.h"
#include "vd/service_locator.h"
#include "vd/transport_features.h"
#include "vd/zor_transport.h"
#include "zor/logger.h"

namespace {

int CallNothing(VdZorTransport* /*transport*/, vd_message_header* /*request*/,
                vd_arena* /*requestArena*/, vd_message_header* /*response*/,
                vd_arena* /*responseArena*/) {
    return -1;
}

constexpr VdZorTransportOps kOps{&CallNothing};

}  // namespace

uint32_t ServiceLocatorConnect(const char* /*name*/) {
    return VD_ZOR_INVALID_HANDLE;
}

uint16_t ServiceLocatorGetRiid(uint32_t /*handle*/, const char* /*endpoint*/) {
    return VD_UNKNOWN_RIID;
}

void VdZorTransport_Init(VdZorTransport* transport, uint32_t /*handle*/, uint32_t timeoutMs,
                         uint32_t flags) {
    *transport = {};
    transport->ops = &kOps;
    transport->handle = VD_ZOR_INVALID_HANDLE;
    transport->timeoutMs = timeoutMs;
    transport->flags = flags;
}

void VdZorTransport_SetFarewell(VdZorTransport* /*transport*/, uint16_t /*riid*/,
                                uint16_t /*operation*/) {}

VdCallBounds* VdZorTransport_SetCallBounds(VdCallBounds* /*bounds*/) {
    return nullptr;
}

void VdZorTransport_SetDefaultTimeout(uint32_t /*timeoutMs*/) {}

int32_t* VdZorTransport_LastStatus() {
    thread_local int32_t lastStatus = 0;
    return &lastStatus;
}

VdTransportStatus VdZorTransport_DescribeStatus(int32_t status) {
    return {status == 0 ? VD_TRANSPORT_OK : VD_TRANSPORT_OTHER, ""};
}

uint32_t VdZorTransport_Features(const VdZorTransport* /*transport*/) {
    return 0;
}

void VdZorTransport_Statistics(const VdZorTransport* /*transport*/,
                               VdTransportStatistics* statistics) {
    std::memset(reinterpret_cast<unsigned char*>(statistics) + sizeof(statistics->size), 0,
                statistics->size - sizeof(statistics->size));
}

void vd_arena_init(vd_arena* arena, void* base, uint32_t capacity) {
    *arena = {static_cast<unsigned char*>(base), capacity, 0};
}

void vd_arena_reset(vd_arena* arena) {
    arena->used = 0;
}

void* vd_arena_alloc(vd_arena* arena, uint32_t size, uint32_t align) {
    const uint64_t step = align == 0 ? 1 : align;
    if ((step & (step - 1)) != 0) {
        return nullptr;
    }
    const uint64_t begin = (arena->used + step - 1) & ~(step - 1);
    if (size != 0 && begin + size > arena->capacity) {
        return nullptr;
    }
    if (size == 0) {
        return arena->base + arena->used;
    }
    arena->used = static_cast<uint32_t>(begin + size);
    return arena->base + begin;
}

namespace vd {

RuntimeDirectoryDiagnosis DiagnoseRuntimeDirectory(const std::vector<std::string>& /*services*/) {
    return {};
}

}  // namespace vd

namespace zor::logger {

ZORLogger::~ZORLogger() = default;

DefaultLoggerImpl::DefaultLoggerImpl(int threshold) noexcept : threshold_(threshold) {}
DefaultLoggerImpl::~DefaultLoggerImpl() = default;

bool DefaultLoggerImpl::IsEnabled(int /*level*/) const {
    return false;
}

void DefaultLoggerImpl::LogImpl(int /*level*/, const char* /*file*/, int /*line*/,
                                const char* /*function*/, std::string_view /*text*/) {}

DefaultLoggerImpl& DefaultLoggerImpl::Instance() noexcept {
    static DefaultLoggerImpl instance(kLevelError);
    return instance;
}

ZORLogger& ZORLogger::RootLogger() noexcept {
    return DefaultLoggerImpl::Instance();
}

ZORLogger* ZORLogger::InstallRootLogger(ZORLogger* /*logger*/) noexcept {
    return nullptr;
}

}  // namespace zor::logger
