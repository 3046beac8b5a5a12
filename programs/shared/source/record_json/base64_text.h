#pragma once

#include <string>
#include <string_view>

namespace zam_json {

/// Bytes that are no UTF-8, as the member `..._base64` of a record holds them. Thread-safe.
std::string Base64Text(std::string_view bytes);

}  // namespace zam_json
