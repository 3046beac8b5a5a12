#pragma once

#include <concepts>
#include <cstdint>
#include <iterator>
#include <utility>

#include "common/arena.h"
#include "common/log.h"
#include "qel/exception.h"
#include "qel/result_code.h"
#include "session_status.h"

/// The call frame that proxy methods share: one request/response exchange, its checks and its log
/// records. The templates keep no state; any number of threads may run them at once. `name` is the
/// operation's name in log records.

namespace zam_connector::proxy {

/// An entry of an endpoint's operation table.
template <typename IdlProxy, typename Request, typename Response>
using IdlOperation = int (*)(const IdlProxy* proxy, Request* request, vd_arena* requestArena,
                             Response* response, vd_arena* responseArena);

namespace detail {

inline constexpr char kTransferCallFile[] = "ipc_transfer_call";
inline constexpr common::LogSite kCheckedTransportSite{kTransferCallFile, 64,
                                                       "IpcTransferCallAndErrorHandle"};
inline constexpr common::LogSite kCheckedSessionSite{kTransferCallFile, 69,
                                                     "IpcTransferCallAndErrorHandle"};
inline constexpr common::LogSite kPlainTransportSite{kTransferCallFile, 87, "IpcTransferCall"};
inline constexpr common::LogSite kStreamTransportSite{kTransferCallFile, 106, "IpcTransferCall"};
inline constexpr int kStreamSessionLine = 112;

inline int TransportFailure(const common::LogSite& site, const char* name, int status) noexcept {
    return common::Failure(site, "Ipc call {} terminated with a error {}", name, status);
}

}  // namespace detail

/// The checked call: 0 when the transport succeeded and the session status is 0 or 1 (who needs to
/// tell them apart reads `response.sessionStatus`); 0x8000004B for a transport failure, else the
/// status's result code, both logged. Arenas may be null.
template <typename IdlProxy, typename Request, typename Response>
int IpcTransferCallAndErrorHandle(const char* name,
                                  IdlOperation<IdlProxy, Request, Response> operation,
                                  const IdlProxy& proxy, Request& request, vd_arena* requestArena,
                                  Response& response, vd_arena* responseArena) {
    const int status = operation(&proxy, &request, requestArena, &response, responseArena);
    if (status != 0) {
        return detail::TransportFailure(detail::kCheckedTransportSite, name, status);
    }
    const std::int8_t session = response.sessionStatus;
    if (session != kSessionOk && session != kSessionLast) {
        common::Failure(detail::kCheckedSessionSite,
                        "Ipc call {} terminated with a session error {}", name,
                        static_cast<int>(session));
        return SessionStatusToResultCode(session);
    }
    return status;
}

/// The plain call of an operation without outputs: the response's result code as it stands, or
/// 0x8000004B, logged, for a transport failure.
template <typename IdlProxy, typename Request, typename Response>
int IpcTransferCall(const char* name, IdlOperation<IdlProxy, Request, Response> operation,
                    const IdlProxy& proxy, Request& request, vd_arena* requestArena,
                    Response& response, vd_arena* responseArena) {
    const int status = operation(&proxy, &request, requestArena, &response, responseArena);
    if (status != 0) {
        return detail::TransportFailure(detail::kPlainTransportSite, name, status);
    }
    return response.resultCode;
}

/// The plain call of an operation with outputs: a negative result code is returned as it stands;
/// otherwise `store(response)` converts and writes the outputs, and 0 is returned. What `store`
/// throws goes through.
template <typename IdlProxy, typename Request, typename Response, typename Store>
int IpcTransferCall(const char* name, IdlOperation<IdlProxy, Request, Response> operation,
                    const IdlProxy& proxy, Request& request, vd_arena* requestArena,
                    Response& response, vd_arena* responseArena, Store&& store) {
    const int code =
        IpcTransferCall(name, operation, proxy, request, requestArena, response, responseArena);
    if (code < 0) {
        return code;
    }
    std::forward<Store>(store)(std::as_const(response));
    return qel::kNoError;
}

/// The streaming read: calls until the session status is 1, appends what `convert(response,
/// arena)` makes of each answer with status 0, and then moves the whole into `output`; the answer
/// with status 1 is not converted. Before every call the response is zero-filled and the arena
/// empty and all zero. A transport failure (logged) and every other session status (not logged)
/// throw `qel::ResultCodeException` with the code; what `convert` throws goes through. `output` is
/// written on success only. There is no limit on the number of answers.
template <typename IdlProxy, typename Request, typename Response, typename Convert,
          typename Container>
requires std::invocable<Convert&, const Response&, const vd_arena&>
void IpcTransferCall(const char* name, IdlOperation<IdlProxy, Request, Response> operation,
                     const IdlProxy& proxy, Request& request, vd_arena* responseArena,
                     Convert&& convert, Container& output) {
    Container collected;
    for (;;) {
        Response response{};
        common::ClearArena(responseArena);
        const int status = operation(&proxy, &request, nullptr, &response, responseArena);
        if (status != 0) {
            throw qel::ResultCodeException(
                detail::TransportFailure(detail::kStreamTransportSite, name, status))
                .At(detail::kTransferCallFile, detail::kStreamTransportSite.line);
        }
        const int code = SessionStatusToResultCode(response.sessionStatus);
        if (code == qel::kFalse) {
            output = std::move(collected);
            return;
        }
        if (code != qel::kNoError) {
            throw qel::ResultCodeException(code).At(detail::kTransferCallFile,
                                                    detail::kStreamSessionLine);
        }
        auto piece = convert(std::as_const(response), std::as_const(*responseArena));
        collected.insert(collected.end(), std::make_move_iterator(piece.begin()),
                         std::make_move_iterator(piece.end()));
    }
}

}  // namespace zam_connector::proxy
