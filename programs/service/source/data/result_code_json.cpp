#include "data/result_code_json.h"

#include <charconv>
#include <cstdint>
#include <limits>
#include <string>

namespace zam_service {

using zam_json::JsonValue;

int ReadResultCode(const JsonValue& value) {
    constexpr std::string_view kAllowed =
        "a whole number from -2147483648 to 2147483647 or a text like \"0x80000045\"";
    if (!value.IsText()) {
        if (!value.IsNumber()) {
            value.Refuse(kAllowed);
        }
        return static_cast<int>(value.Signed(std::numeric_limits<std::int32_t>::min(),
                                             std::numeric_limits<std::int32_t>::max()));
    }
    const std::string text = value.Text();
    std::uint32_t bits = 0;
    const char* const end = text.data() + text.size();
    if (text.size() < 3 || text.size() > 10 || text.compare(0, 2, "0x") != 0) {
        value.Refuse(kAllowed);
    }
    const auto [stop, error] = std::from_chars(text.data() + 2, end, bits, 16);
    if (error != std::errc() || stop != end) {
        value.Refuse(kAllowed);
    }
    return static_cast<int>(bits);
}

}  // namespace zam_service
