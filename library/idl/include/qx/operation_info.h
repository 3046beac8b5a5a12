#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "qx/conn_command_sender.h"
#include "qx/conn_controller.h"
#include "qx/conn_settings_holder.h"
#include "qx/conn_state_notifier.h"
#include "qx/product_data_holder.h"
#include "qx/zam_client_certs_downloader.h"
#include "qx/zam_data_notifier.h"
#include "qx/zam_data_provider.h"
#include "qx/zam_file_downloader.h"

/// The operation tables as data, for a server that checks sizes and for tests. Made of the same
/// rows as the tables of functions: a server with a list of its own would one day refuse what the
/// library rightly sends.

namespace qx {

/// Stands where a message has no such field. No offset, since messages are small; 0 would be one.
inline constexpr std::uint32_t kNoField = 0xFFFFFFFFU;

/// One operation. Sizes are bytes; offsets are those of the response's fields: a server that makes
/// a call fail must know where this operation tells so, and not every one does.
struct OperationInfo {
    std::string_view name;
    std::uint16_t number = 0;
    std::uint32_t requestSize = 0;
    std::uint32_t responseSize = 0;
    std::uint32_t requestArena = 0;   ///< most arena bytes of a request
    std::uint32_t responseArena = 0;  ///< most arena bytes of a response
    std::uint32_t resultCodeOffset = kNoField;
    std::uint32_t sessionStatusOffset = kNoField;
};

namespace detail {

// Asked of the response's type, so that no row can name an offset that its message does not have.
template <typename Response>
constexpr std::uint32_t ResultCodeOffset() {
    if constexpr (requires(Response response) { response.resultCode; }) {
        return offsetof(Response, resultCode);
    } else {
        return kNoField;
    }
}

/// A channel operation's session status, a registration's error or a notice's status: three names
/// of the contract for one thing, a byte that is not a result code.
template <typename Response>
constexpr std::uint32_t SessionStatusOffset() {
    if constexpr (requires(Response response) { response.sessionStatus; }) {
        return offsetof(Response, sessionStatus);
    } else if constexpr (requires(Response response) { response.error; }) {
        return offsetof(Response, error);
    } else if constexpr (requires(Response response) { response.status; }) {
        return offsetof(Response, status);
    } else {
        return kNoField;
    }
}

}  // namespace detail

#define QX_OPERATION_INFO(INTERFACE, NUMBER, NAME, REQUEST, RESPONSE, REQUEST_ARENA,       \
                          RESPONSE_ARENA)                                                  \
    OperationInfo{#NAME,                                                                   \
                  NUMBER,                                                                  \
                  REQUEST,                                                                 \
                  RESPONSE,                                                                \
                  REQUEST_ARENA,                                                           \
                  RESPONSE_ARENA,                                                          \
                  detail::ResultCodeOffset<qx_zam_connector_##INTERFACE##_##NAME##_rsp>(), \
                  detail::SessionStatusOffset<qx_zam_connector_##INTERFACE##_##NAME##_rsp>()},

#define QX_OPERATION_INFO_TABLE(INTERFACE, OPERATIONS) \
    inline constexpr auto k##INTERFACE##Operations =   \
        std::to_array<OperationInfo>({OPERATIONS(QX_OPERATION_INFO)});

QX_INTERFACES(QX_OPERATION_INFO_TABLE)

#undef QX_OPERATION_INFO_TABLE
#undef QX_OPERATION_INFO

/// One interface with its operations in order of their numbers.
struct InterfaceInfo {
    std::string_view name;
    std::span<const OperationInfo> operations;
};

#define QX_INTERFACE_INFO(INTERFACE, OPERATIONS) \
    InterfaceInfo{#INTERFACE, std::span<const OperationInfo>(k##INTERFACE##Operations)},

inline constexpr auto kInterfaces =
    std::to_array<InterfaceInfo>({QX_INTERFACES(QX_INTERFACE_INFO)});

#undef QX_INTERFACE_INFO

}  // namespace qx
