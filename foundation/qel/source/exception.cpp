#include "qel/exception.h"

#include <utility>

namespace qel {

Exception::Exception(int code, std::u16string text)
    : code_(code), text_(std::make_shared<const std::u16string>(std::move(text))) {}

Exception::~Exception() = default;

void Exception::SetLocation(const char* file, int line) noexcept {
    file_ = file;
    line_ = line;
}

void Exception::AppendText(std::u16string_view piece) {
    std::u16string longer = *text_;
    longer += piece;
    text_ = std::make_shared<const std::u16string>(std::move(longer));
}

std::u16string Exception::Text() const {
    return *text_;
}

std::u16string Exception::DisplayText() const {
    return Text() + u". At " + ToUtf16(file_) + u"(" + ToUtf16(std::to_string(line_)) + u")";
}

const char* Exception::what() const noexcept {
    return "Exception";
}

void Exception::Throw() const {
    throw Exception(*this);
}

std::unique_ptr<Exception> Exception::Clone() const {
    return std::make_unique<Exception>(*this);
}

ResultCodeException::ResultCodeException(int code, std::u16string text)
    : ExceptionBase(code, std::move(text)) {}

ResultCodeException::~ResultCodeException() = default;

std::u16string ResultCodeException::Text() const {
    return StoredText().empty() ? ResultCodeText(Code()) : StoredText();
}

const char* ResultCodeException::what() const noexcept {
    return "ResultCodeException";
}

InvalidArgumentException::~InvalidArgumentException() = default;

const char* InvalidArgumentException::what() const noexcept {
    return "InvalidArgumentException";
}

CheckFailedException::CheckFailedException(const char* file, int line)
    : ExceptionBase(kUnspecifiedError, std::u16string()) {
    SetLocation(file, line);
}

CheckFailedException::~CheckFailedException() = default;

const char* CheckFailedException::what() const noexcept {
    return "CheckFailedException";
}

CheckFailedException& CheckFailedException::operator<<(std::string_view piece) {
    AppendText(ToUtf16(piece));
    return *this;
}

CheckFailedException& CheckFailedException::operator<<(const char* piece) {
    return *this << std::string_view(piece == nullptr ? "" : piece);
}

CheckFailedException& CheckFailedException::operator<<(const std::string& piece) {
    return *this << std::string_view(piece);
}

}  // namespace qel
