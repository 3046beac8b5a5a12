#pragma once

#include <string>
#include <vector>

namespace zam_test {

/// Parts of a text, at every newline; what stands behind the last one counts when not empty.
std::vector<std::string> Lines(const std::string& text);

}  // namespace zam_test
