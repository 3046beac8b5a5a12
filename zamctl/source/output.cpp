#include "output.h"

#include <nlohmann/json.hpp>
#include <ostream>

namespace zamctl {

void Output::Result(const std::string& text, const Json& document) {
    Print(text, document);
}

void Output::Confirmation(const std::string& text, const Json& document) {
    if (format_.json || !format_.quiet) {
        Print(text, document);
    }
}

void Output::Detail(const std::string& text, const Json& document) {
    if (!format_.quiet) {
        Print(text, document);
    }
}

void Output::Print(const std::string& text, const Json& document) {
    if (format_.json) {
        // Texts that are no UTF-8 must not end in an exception behind a call that has succeeded.
        out_ << document.dump(-1, ' ', false, Json::error_handler_t::replace);
    } else {
        out_ << text;
    }
    out_ << '\n' << std::flush;
}

}  // namespace zamctl
