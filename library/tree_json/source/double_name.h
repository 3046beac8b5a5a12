#pragma once

#include <optional>
#include <string_view>

namespace zam_connector::tree_json {

/// The number that the text in a `$double` names; its digits may be in capitals. Empty for a text
/// that names none, and for the bits of what is no NaN: that number has a form of its own.
std::optional<double> DoubleOfName(std::string_view name);

}  // namespace zam_connector::tree_json
