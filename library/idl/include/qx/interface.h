#pragma once

#include <cstddef>
#include <cstdint>

#include "qx/operations.h"
#include "vd/arena.h"
#include "vd/zor_transport.h"

namespace qx {

/// What every operation stub does: fills the first 8 bytes of both headers and hands the exchange
/// to the transport, whose status it returns unchanged. The other 16 header bytes are the
/// transport's and are left alone.
///
/// The response's header is filled too: the transport learns from it how large an answer may be,
/// and compares the answer's header with it.
template <std::uint16_t kOperation, typename Proxy, typename Request, typename Response>
int Exchange(const Proxy* proxy, Request* request, vd_arena* requestArena, Response* response,
             vd_arena* responseArena) {
    request->header.riid = proxy->riid;
    request->header.operation = kOperation;
    request->header.fixedSize = sizeof(Request);
    response->header.riid = proxy->riid;
    response->header.operation = kOperation;
    response->header.fixedSize = sizeof(Response);
    return proxy->transport->ops->call(proxy->transport, &request->header, requestArena,
                                       &response->header, responseArena);
}

}  // namespace qx

// The macros below are given to the rows of qx/operations.h, and so have one parameter for each
// column, also where they use a few of them.

// NOLINTBEGIN(bugprone-macro-parentheses): a declared name takes no parentheses.
#define QX_OPERATION_SLOT(INTERFACE, NUMBER, NAME, REQUEST, RESPONSE, REQUEST_ARENA,          \
                          RESPONSE_ARENA)                                                     \
    int (*NAME)(const qx_zam_connector_##INTERFACE##_proxy* proxy,                            \
                qx_zam_connector_##INTERFACE##_##NAME##_req* request, vd_arena* requestArena, \
                qx_zam_connector_##INTERFACE##_##NAME##_rsp* response, vd_arena* responseArena);

// NOLINTEND(bugprone-macro-parentheses)

// One function for each row rather than one for all: the operation's number is not in the proxy
// record, and callers hand in messages of the types of that row only.
#define QX_OPERATION_ENTRY(INTERFACE, NUMBER, NAME, REQUEST, RESPONSE, REQUEST_ARENA, \
                           RESPONSE_ARENA)                                            \
    &qx::Exchange<NUMBER, qx_zam_connector_##INTERFACE##_proxy,                       \
                  qx_zam_connector_##INTERFACE##_##NAME##_req,                        \
                  qx_zam_connector_##INTERFACE##_##NAME##_rsp>,

// What a compiler might lay out otherwise. Sizes: the peer refuses a message of another one.
// Alignment: transports and server read messages in place, from buffers that are 8-aligned. The
// header first: a transport is handed a pointer to it and takes it for one to the message. The
// place in the table: it is the number that the message carries.
#define QX_OPERATION_CHECKS(INTERFACE, NUMBER, NAME, REQUEST, RESPONSE, REQUEST_ARENA, \
                            RESPONSE_ARENA)                                            \
    static_assert(sizeof(qx_zam_connector_##INTERFACE##_##NAME##_req) == (REQUEST));   \
    static_assert(sizeof(qx_zam_connector_##INTERFACE##_##NAME##_rsp) == (RESPONSE));  \
    static_assert(alignof(qx_zam_connector_##INTERFACE##_##NAME##_req) == 8);          \
    static_assert(alignof(qx_zam_connector_##INTERFACE##_##NAME##_rsp) == 8);          \
    static_assert(offsetof(qx_zam_connector_##INTERFACE##_##NAME##_req, header) == 0); \
    static_assert(offsetof(qx_zam_connector_##INTERFACE##_##NAME##_rsp, header) == 0); \
    static_assert(offsetof(qx_zam_connector_##INTERFACE##_ops, NAME) == (NUMBER) * sizeof(void*));

#define QX_OPERATION_NUMBER(INTERFACE, NUMBER, NAME, REQUEST, RESPONSE, REQUEST_ARENA, \
                            RESPONSE_ARENA)                                            \
    NAME = (NUMBER),

// Constants, since clients size arenas on their stacks by them.
#define QX_OPERATION_ARENAS(INTERFACE, NUMBER, NAME, REQUEST, RESPONSE, REQUEST_ARENA,      \
                            RESPONSE_ARENA)                                                 \
    inline constexpr std::uint32_t qx_zam_connector_##INTERFACE##_##NAME##_request_arena =  \
        REQUEST_ARENA;                                                                      \
    inline constexpr std::uint32_t qx_zam_connector_##INTERFACE##_##NAME##_response_arena = \
        RESPONSE_ARENA;

/// Declares an interface whose messages are already declared: the numbers of its operations
/// `qx_zam_connector_NAME_operation`, the arena bytes of each
/// (`qx_zam_connector_NAME_OPERATION_request_arena`, `..._response_arena`), its operation table
/// type `qx_zam_connector_NAME_ops`, its proxy record `qx_zam_connector_NAME_proxy` of three words,
/// the table itself, and `qx_zam_connector_NAME_proxy_init(record, transport, riid)`, which fills
/// the record and checks nothing: the class that keeps the record checks it, so that the failure
/// names that class. Neither the table nor the transport is owned by the record.
///
/// The record is copied into each proxy object, which is why it refers to its table and holds no
/// functions itself.
#define QX_DECLARE_INTERFACE(INTERFACE, OPERATIONS)                                   \
    enum class qx_zam_connector_##INTERFACE##_operation : std::uint16_t{              \
        OPERATIONS(QX_OPERATION_NUMBER)};                                             \
    OPERATIONS(QX_OPERATION_ARENAS)                                                   \
    struct qx_zam_connector_##INTERFACE##_proxy;                                      \
    struct qx_zam_connector_##INTERFACE##_ops {                                       \
        OPERATIONS(QX_OPERATION_SLOT)                                                 \
    };                                                                                \
    struct qx_zam_connector_##INTERFACE##_proxy {                                     \
        const qx_zam_connector_##INTERFACE##_ops* ops;                                \
        VdZorTransport* transport;                                                    \
        std::uint16_t riid;                                                           \
    };                                                                                \
    static_assert(sizeof(qx_zam_connector_##INTERFACE##_proxy) == 3 * sizeof(void*)); \
    OPERATIONS(QX_OPERATION_CHECKS)                                                   \
    inline constexpr qx_zam_connector_##INTERFACE##_ops                               \
        qx_zam_connector_##INTERFACE##_operations = {OPERATIONS(QX_OPERATION_ENTRY)}; \
    inline void qx_zam_connector_##INTERFACE##_proxy_init(                            \
        qx_zam_connector_##INTERFACE##_proxy* record, VdZorTransport* transport,      \
        std::uint16_t riid) {                                                         \
        *record = {&qx_zam_connector_##INTERFACE##_operations, transport, riid};      \
    }

/// Fixes the offset of a field; every field of every message and shared record has one. A size
/// alone would not tell when two fields of the same size change places.
#define QX_FIELD(RECORD, FIELD, OFFSET) static_assert(offsetof(RECORD, FIELD) == (OFFSET))
