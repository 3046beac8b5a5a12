#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Base64 with padding (RFC 4648, section 4). Thread-safe.

namespace zam_json {

std::string EncodeBase64(std::string_view bytes);

/// Empty for what `EncodeBase64` never gives: other characters, white space included, padding that
/// is missing or misplaced, and bits behind the last byte that are not 0.
std::optional<std::string> DecodeBase64(std::string_view text);

}  // namespace zam_json
