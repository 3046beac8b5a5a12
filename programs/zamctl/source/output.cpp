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
    // Whoever asks for JSON reads one document of every command, a quiet one too.
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
    // At once: whoever reads a pipe sees changes as they come.
    out_ << (format_.json ? JsonLine(document) : text + '\n') << std::flush;
}

}  // namespace zamctl
