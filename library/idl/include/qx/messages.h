#pragma once

#include <cstdint>

#include "qx/interface.h"

/// Message shapes that several operations share. `sessionStatus` is the signed 8-bit status of
/// channel operations, `resultCode` the service's result code. qx/operation_info.h finds both by
/// these names, so a field that means something else must not have them.
///
/// Padding is named, here and in all messages: bytes without a name need not be copied with the
/// rest and may hold what the stack held before, which must not go to another process. Reserved
/// fields are zero, so that one day they can mean something with 0 for "as before".

namespace qx {

/// A message without fields of its own. Only requests are so: all that these operations need to be
/// told is that they are called.
struct EmptyRequest {
    vd_message_header header;
};

/// Names one channel. Signed, as the services that give the numbers have them; any value is good.
struct ChannelRequest {
    vd_message_header header;
    std::int64_t channel;
};
QX_FIELD(ChannelRequest, channel, 24);

/// Names one registration at a notifier. The client holds the number only while it is registered;
/// a service may tell by it whether the registration is from before its restart.
struct RegistrationRequest {
    vd_message_header header;
    std::uint32_t registrationId;
    std::uint32_t reserved;
};
QX_FIELD(RegistrationRequest, registrationId, 24);
QX_FIELD(RegistrationRequest, reserved, 28);

/// Nothing that is read: who unregisters has no use for a failure. The eight bytes are there
/// because the contract's message has them.
struct EmptyResponse {
    vd_message_header header;
    std::uint64_t reserved;
};
QX_FIELD(EmptyResponse, reserved, 24);

/// Eight bytes behind the header although the code has four: messages are 8-aligned, so their sizes
/// are multiples of 8.
struct ResultResponse {
    vd_message_header header;
    std::int32_t resultCode;
    std::uint32_t reserved;
};
QX_FIELD(ResultResponse, resultCode, 24);
QX_FIELD(ResultResponse, reserved, 28);

/// Signed, since failures are negative: -1 to -5 have meanings of their own.
struct SessionResponse {
    vd_message_header header;
    std::int8_t sessionStatus;
    std::uint8_t reserved[7];
};
QX_FIELD(SessionResponse, sessionStatus, 24);
QX_FIELD(SessionResponse, reserved, 25);

/// The channel stands in front of the status: 8-byte fields come first, where no padding is needed
/// between them.
struct OpenChannelResponse {
    vd_message_header header;
    std::int64_t channel;
    std::int8_t sessionStatus;
    std::uint8_t reserved[7];
};
QX_FIELD(OpenChannelResponse, channel, 24);
QX_FIELD(OpenChannelResponse, sessionStatus, 32);
QX_FIELD(OpenChannelResponse, reserved, 33);

/// A result code and no session status: a hash is asked for without a channel.
struct HashResponse {
    vd_message_header header;
    std::uint64_t hash;
    std::int32_t resultCode;
    std::uint32_t reserved;
};
QX_FIELD(HashResponse, hash, 24);
QX_FIELD(HashResponse, resultCode, 32);
QX_FIELD(HashResponse, reserved, 36);

/// Answer of a notifier's `Register`. The error stands at 32 and not behind the id: 28 is reserved
/// by the contract.
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

/// A notice: the kind of changed data or the connection state. One shape for both, so that one
/// state machine at the service and one at the client do for both.
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
