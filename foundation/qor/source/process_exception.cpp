#include "qor/utils/process_exception.h"

#include <fmt/format.h>

#include <exception>
#include <stdexcept>

#include "qel/exception.h"
#include "qel/result_code.h"
#include "qel/utf.h"

namespace qor::utils {

std::pair<int, std::string> ProcessException() {
    try {
        throw;
    } catch (const qel::ResultCodeException& exception) {
        return {exception.Code(), qel::ToUtf8(exception.DisplayText())};
    } catch (const qel::Exception& exception) {
        return {qel::kUnspecifiedError, qel::ToUtf8(exception.DisplayText())};
    } catch (const std::invalid_argument& exception) {
        return {qel::kInvalidArgument, exception.what()};
    } catch (const std::length_error& exception) {
        return {qel::kInvalidSize, exception.what()};
    } catch (const std::out_of_range& exception) {
        return {qel::kInvalidIndex, exception.what()};
    } catch (const std::exception& exception) {
        return {qel::kUnspecifiedError, fmt::format("std::exception: {}", exception.what())};
    } catch (...) {
        return {qel::kUnspecifiedError, "non-std exception"};
    }
}

}  // namespace qor::utils
