#include "qor/utils/process_exception.h"

#include "qel/utf.h"
#include "qor/utils/exception_in_flight.h"

namespace qor::utils {

std::pair<int, std::string> ProcessException() {
    const ExceptionInFlight caught = LookAtException();
    if (caught.own != nullptr) {
        return {caught.code, qel::ToUtf8(caught.own->DisplayText())};
    }
    std::string text = caught.prefix;
    text += caught.what;
    return {caught.code, std::move(text)};
}

}  // namespace qor::utils
