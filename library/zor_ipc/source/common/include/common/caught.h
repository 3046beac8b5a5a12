#pragma once

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "qel/result_code.h"
#include "qor/utils/exception_in_flight.h"
#include "qor/utils/process_exception.h"

namespace zam_connector::common {

/// Code and text of the exception in flight, as `qor::utils::ProcessException` gives them. To be
/// made inside a catch block. Where there is no memory for the text, what is known without any
/// stands for it, cut to a fixed size.
class Caught {
public:
    Caught() noexcept {
        try {
            whole_ = qor::utils::ProcessException();
            code_ = whole_.first;
            text_ = whole_.second;
            return;
        } catch (const std::bad_alloc&) {
            // In flight here is another exception than the one to tell of.
        }
        const qor::utils::ExceptionInFlight known = qor::utils::LookAtException();
        const auto written =
            known.own == nullptr
                ? fmt::format_to_n(short_.data(), short_.size(), "{}{}", known.prefix, known.what)
                : fmt::format_to_n(short_.data(), short_.size(), "{}. At {}({})", known.what,
                                   known.own->File(), known.own->Line());
        code_ = known.code;
        text_ = {short_.data(), std::min(written.size, short_.size())};
    }
    Caught(const Caught&) = delete;
    Caught& operator=(const Caught&) = delete;
    ~Caught() = default;

    int Code() const noexcept { return code_; }
    std::string_view Text() const noexcept { return text_; }

private:
    static constexpr std::size_t kShortBytes = 256;

    int code_ = qel::kUnspecifiedError;
    std::string_view text_;
    std::pair<int, std::string> whole_{};
    std::array<char, kShortBytes> short_;
};

}  // namespace zam_connector::common
