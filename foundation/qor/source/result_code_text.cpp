#include "qor/qelx/result_code_text.h"

#include "qel/result_code.h"

namespace qor::qelx {

std::u16string ResultCodeText(int code) {
    return qel::ResultCodeText(code);
}

}  // namespace qor::qelx
