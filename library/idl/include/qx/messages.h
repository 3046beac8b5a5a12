#pragma once

#include <cstdint>

#include "qx/interface.h"

/// Message shapes that several operations share. `sessionStatus` is the signed 8-bit status of
/// channel operations, `resultCode` the service's result code.

namespace qx {

/// A message without fields of its own.
struct EmptyRequest {
    vd_message_header header;
};

/// Names one channel.
struct ChannelRequest {
    vd_message_header header;
    std::int64_t channel;
};
QX_FIELD(ChannelRequest, channel, 24);

/// Names one registration at a notifier.
struct RegistrationRequest {
    vd_message_header header;
    std::uint32_t registrationId;
    std::uint32_t reserved;
};
QX_FIELD(RegistrationRequest, registrationId, 24);
QX_FIELD(RegistrationRequest, reserved, 28);

/// Nothing that is read.
struct EmptyResponse {
    vd_message_header header;
    std::uint64_t reserved;
};
QX_FIELD(EmptyResponse, reserved, 24);

struct ResultResponse {
    vd_message_header header;
    std::int32_t resultCode;
    std::uint32_t reserved;
};
QX_FIELD(ResultResponse, resultCode, 24);
QX_FIELD(ResultResponse, reserved, 28);

struct SessionResponse {
    vd_message_header header;
    std::int8_t sessionStatus;
    std::uint8_t reserved[7];
};
QX_FIELD(SessionResponse, sessionStatus, 24);
QX_FIELD(SessionResponse, reserved, 25);

struct OpenChannelResponse {
    vd_message_header header;
    std::int64_t channel;
    std::int8_t sessionStatus;
    std::uint8_t reserved[7];
};
QX_FIELD(OpenChannelResponse, channel, 24);
QX_FIELD(OpenChannelResponse, sessionStatus, 32);
QX_FIELD(OpenChannelResponse, reserved, 33);

struct HashResponse {
    vd_message_header header;
    std::uint64_t hash;
    std::int32_t resultCode;
    std::uint32_t reserved;
};
QX_FIELD(HashResponse, hash, 24);
QX_FIELD(HashResponse, resultCode, 32);
QX_FIELD(HashResponse, reserved, 36);

/// Answer of a notifier's `Register`.
struct RegisterResponse {
    vd_message_header header;
    std::uint32_t registrationId;
    std::uint32_t reserved;
    std::int8_t error;
    std::uint8_t reserved2[7];
};
QX_FIELD(RegisterResponse, registrationId, 24);
QX_FIELD(RegisterResponse, reserved, 28);
QX_FIELD(RegisterResponse, error, 32);
QX_FIELD(RegisterResponse, reserved2, 33);

/// A notice: the kind of changed data or the connection state.
struct NoticeResponse {
    vd_message_header header;
    std::uint32_t value;
    std::uint8_t status;
    std::uint8_t reserved[3];
};
QX_FIELD(NoticeResponse, value, 24);
QX_FIELD(NoticeResponse, status, 28);
QX_FIELD(NoticeResponse, reserved, 29);

}  // namespace qx
