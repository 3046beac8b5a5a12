#include "output.h"

#include <nlohmann/json.hpp>
#include <ostream>

#include "printable.h"

namespace zamctl {

std::string JsonLine(const Json& document) {
    // Texts that are no UTF-8 must not end in an exception behind a call that has succeeded.
    return PrintableJson(document.dump(-1, ' ', false, Json::error_handler_t::replace)) + '\n';
}

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

void Output::Content(const std::string& content) {
    out_ << content << std::flush;
}

bool Output::IsGood() const {
    return out_.good();
}

void Output::Print(const std::string& text, const Json& document) {
    out_ << (format_.json ? JsonLine(document) : text + '\n') << std::flush;
}

}  // namespace zamctl
