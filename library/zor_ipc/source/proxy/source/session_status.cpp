#include "session_status.h"

#include "qel/result_code.h"

namespace zam_connector::proxy {

int SessionStatusToResultCode(std::int8_t status) noexcept {
    switch (status) {
        case -5:
        case -4:
        case -1:
            return qel::kInvalidArgument;
        case -3:
        case -2:
            return qel::kInvalidResult;
        case kSessionOk:
            return qel::kNoError;
        case kSessionLast:
            return qel::kFalse;
        default:
            return qel::kUnspecifiedError;
    }
}

}  // namespace zam_connector::proxy
