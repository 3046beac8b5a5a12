#include "zuv/error.h"

#include <fmt/format.h>

#include <variant>

#include "qel/result_code.h"

namespace zuv {

Error::Error(int resultCode, const std::string& message)
    : std::logic_error(message), code(resultCode) {}

Error::~Error() = default;

const Error WrongItem(qel::FromBits(0x8000004AU),
                      "zuv: Path or id does not correspond to contained item");
const Error ItemDoesNotExist(qel::FromBits(0x8000004CU), "zuv: Item with given id does not exist");
const Error ItemAlreadyExists(qel::FromBits(0x8000004DU), "zuv: Item with given id already exists");

std::pair<int, std::string> ProcessException() {
    try {
        throw;
    } catch (const std::pair<int, std::string>& result) {
        return result;
    } catch (const Error& error) {
        return {error.code, error.what()};
    } catch (const std::bad_variant_access&) {
        return {WrongItem.code, "zuv: std::bad_variant_access"};
    } catch (const std::exception& exception) {
        return {qel::kUnspecifiedError, fmt::format("zuv: std::exception: {}", exception.what())};
    } catch (...) {
        return {qel::FromBits(0x80000072U), "zuv: non-std exception"};
    }
}

}  // namespace zuv
