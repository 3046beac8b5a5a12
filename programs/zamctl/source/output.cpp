#include "output.h"

#include <ostream>

namespace zamctl {

std::string JsonLine(const Fields& document) {
    return JsonText(document) + '\n';
}

void Output::Result(const std::string& text, const Fields& document) {
    Print(text, document);
}

void Output::Confirmation(const std::string& text, const Fields& document) {
    if (format_.json || !format_.quiet) {
        Print(text, document);
    }
}

void Output::Detail(const std::string& text, const Fields& document) {
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

void Output::Print(const std::string& text, const Fields& document) {
    out_ << (format_.json ? JsonLine(document) : text + '\n') << std::flush;
}

}  // namespace zamctl
