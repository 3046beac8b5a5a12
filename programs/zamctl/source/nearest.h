#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zamctl {

/// The name that somebody who typed `word` most likely meant; empty when none comes close. A name
/// that begins with the word counts as close.
std::string NearestName(std::string_view word, const std::vector<std::string>& names);

/// "; did you mean 'stop'?", or "; known are stop, start" when no name comes close. `kind` is the
/// plural of what the names are.
std::string SuggestName(std::string_view word, const std::vector<std::string>& names,
                        std::string_view kind);

}  // namespace zamctl
