#pragma once

#include <exception>
#include <stdexcept>

#include "qel/exception.h"
#include "qel/result_code.h"

namespace qor::utils {

/// The exception in flight, as far as it is known without memory.
struct ExceptionInFlight {
    int code;
    const qel::Exception* own;  ///< null for one that is not of the library's classes
    const char* prefix;         ///< of the text, in front of `what`
    const char* what;
};

/// To be called inside a catch block only: with no exception in flight the process ends, as a bare
/// `throw` does. What is pointed to lives as long as the exception is handled there. Thread-safe.
inline ExceptionInFlight LookAtException() noexcept {
    const auto foreign = [](int code, const std::exception& exception, const char* prefix = "") {
        return ExceptionInFlight{code, nullptr, prefix, exception.what()};
    };
    try {
        throw;
    } catch (const qel::ResultCodeException& exception) {
        return {exception.Code(), &exception, "", exception.what()};
    } catch (const qel::Exception& exception) {
        return {qel::kUnspecifiedError, &exception, "", exception.what()};
    } catch (const std::invalid_argument& exception) {
        return foreign(qel::kInvalidArgument, exception);
    } catch (const std::length_error& exception) {
        return foreign(qel::kInvalidSize, exception);
    } catch (const std::out_of_range& exception) {
        return foreign(qel::kInvalidIndex, exception);
    } catch (const std::exception& exception) {
        return foreign(qel::kUnspecifiedError, exception, "std::exception: ");
    } catch (...) {
        return {qel::kUnspecifiedError, nullptr, "", "non-std exception"};
    }
}

}  // namespace qor::utils
