#include "zam_connector/result_code.h"

#include "qel/result_code.h"

namespace zam_connector {

static_assert(kNoError == qel::kNoError);
static_assert(kFalse == qel::kFalse);
static_assert(kUnspecifiedError == qel::kUnspecifiedError);

std::string ResultCodeMessage(int code) {
    return std::string(qel::ResultCodeMessage(code));
}

}  // namespace zam_connector
