#pragma once

#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include "qel/export.h"
#include "qel/result_code.h"
#include "qel/utf.h"

namespace qel {

/// A failure with a result code, the place where it was raised and a UTF-16 text.
///
/// Exceptions are used inside the library; of the public operations only those throw that say so. A
/// value of these classes may be read from several threads at once, and changed by one.
class ZAM_API Exception : public std::exception {
public:
    Exception(int code, std::u16string text);
    Exception(const Exception&) noexcept = default;
    Exception& operator=(const Exception&) noexcept = default;
    ~Exception() override;

    int Code() const noexcept { return code_; }

    /// Stem of the source file that raised the exception; empty when it was not recorded. The file
    /// name is kept as a pointer and must have static storage.
    const char* File() const noexcept { return file_; }
    int Line() const noexcept { return line_; }
    void SetLocation(const char* file, int line) noexcept;

    virtual std::u16string Text() const;

    /// The text for logs: `Text()`, ". At ", the file and the line in parentheses, as in
    /// "Service name is empty!. At proxy_init(25)".
    std::u16string DisplayText() const;

    const char* what() const noexcept override;

    /// Throws a copy of this exception as its most derived type.
    [[noreturn]] virtual void Throw() const;

    /// A copy of this exception, of its most derived type, on the heap.
    virtual std::unique_ptr<Exception> Clone() const;

protected:
    void AppendText(std::u16string_view piece);

    const std::u16string& StoredText() const noexcept { return *text_; }

private:
    int code_;
    const char* file_ = "";
    int line_ = 0;
    /// Shared by copies and never changed, so that copying, which a throw does, cannot fail.
    std::shared_ptr<const std::u16string> text_;
};

/// Gives `Derived` its `Throw` and `Clone`, and an `At` that keeps the derived type, so that
/// `throw Derived().At(file, line)` does not slice. `Base` is `Exception` or derives from it.
template <typename Derived, typename Base>
class ZAM_API ExceptionBase : public Base {
public:
    using Base::Base;

    [[noreturn]] void Throw() const override { throw static_cast<const Derived&>(*this); }

    std::unique_ptr<Exception> Clone() const override {
        return std::make_unique<Derived>(static_cast<const Derived&>(*this));
    }

    /// Records where the exception is raised. `file` must have static storage.
    Derived& At(const char* file, int line) noexcept {
        this->SetLocation(file, line);
        return static_cast<Derived&>(*this);
    }
};

/// A failure that is fully told by its code: the text is the given one, and where that is empty
/// the text of the code with its number.
class ZAM_API ResultCodeException : public ExceptionBase<ResultCodeException, Exception> {
public:
    explicit ResultCodeException(int code = kNoError, std::u16string text = {});
    ~ResultCodeException() override;

    std::u16string Text() const override;
    const char* what() const noexcept override;
};

/// An argument that breaks a precondition. Default-constructed it carries code 0, not the code
/// "Invalid argument": callers tell it by its type, and the entry functions return that 0.
class ZAM_API InvalidArgumentException
    : public ExceptionBase<InvalidArgumentException, ResultCodeException> {
public:
    using ExceptionBase::ExceptionBase;
    InvalidArgumentException() = default;
    ~InvalidArgumentException() override;

    const char* what() const noexcept override;
};

/// A check that failed; its text is streamed into it:
/// `throw CheckFailedException("proxy_init", 27) << "Handle for " << name;`
class ZAM_API CheckFailedException : public ExceptionBase<CheckFailedException, Exception> {
public:
    CheckFailedException(const char* file, int line);
    ~CheckFailedException() override;

    const char* what() const noexcept override;

    /// Appends UTF-8 text as it stands. Returns the derived type: a base reference would slice in
    /// a throw expression.
    CheckFailedException& operator<<(std::string_view piece);
    /// Appends a C string; null appends nothing.
    CheckFailedException& operator<<(const char* piece);
    CheckFailedException& operator<<(const std::string& piece);

    /// Appends an integer in decimal.
    template <typename Integer, typename = std::enable_if_t<std::is_integral_v<Integer> &&
                                                            !std::is_same_v<Integer, char> &&
                                                            !std::is_same_v<Integer, bool>>>
    CheckFailedException& operator<<(Integer number) {
        return *this << std::to_string(number);
    }
};

}  // namespace qel
