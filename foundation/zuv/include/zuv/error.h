#pragma once

#include <stdexcept>
#include <string>
#include <utility>

#include "qel/export.h"

namespace zuv {

/// The code of success.
inline constexpr int ResultOk = 0;

/// A failure of an operation on trees. `what()` is the message.
class ZAM_API Error : public std::logic_error {
public:
    Error(int resultCode, const std::string& message);
    Error(const Error&) noexcept = default;
    Error& operator=(const Error&) noexcept = default;
    ~Error() override;

    int code;  ///< result code of the form 0x8000xxxx
};

/// 0x8000004a: "zuv: Path or id does not correspond to contained item"
ZAM_API extern const Error WrongItem;
/// 0x8000004c: "zuv: Item with given id does not exist"
ZAM_API extern const Error ItemDoesNotExist;
/// 0x8000004d: "zuv: Item with given id already exists"
ZAM_API extern const Error ItemAlreadyExists;

/// Result code and message of the exception in flight: a thrown `std::pair<int, std::string>` as it
/// is, an `Error` with its own code and text, and every other exception with a code and a text that
/// begins with "zuv: ". To be called inside a catch block only: with no exception in flight the
/// process ends. Throws nothing but for want of memory. Thread-safe.
ZAM_API std::pair<int, std::string> ProcessException();

}  // namespace zuv
