#include "nearest.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <utility>

namespace zamctl {
namespace {

/// Insertions, deletions, replacements and swaps of neighbours that turn one word into the other.
std::size_t EditDistance(std::string_view left, std::string_view right) {
    std::vector<std::size_t> beforeLast(right.size() + 1);
    std::vector<std::size_t> last(right.size() + 1);
    std::vector<std::size_t> row(right.size() + 1);
    for (std::size_t column = 0; column <= right.size(); ++column) {
        last[column] = column;
    }
    for (std::size_t line = 1; line <= left.size(); ++line) {
        row[0] = line;
        for (std::size_t column = 1; column <= right.size(); ++column) {
            const std::size_t replaced =
                last[column - 1] + (left[line - 1] == right[column - 1] ? 0 : 1);
            row[column] = std::min({replaced, last[column] + 1, row[column - 1] + 1});
            if (line > 1 && column > 1 && left[line - 1] == right[column - 2] &&
                left[line - 2] == right[column - 1]) {
                row[column] = std::min(row[column], beforeLast[column - 2] + 1);
            }
        }
        std::swap(beforeLast, last);
        std::swap(last, row);
    }
    return last[right.size()];
}

}  // namespace

std::string NearestName(std::string_view word, const std::vector<std::string>& names) {
    constexpr std::size_t kLongestWord = 128;  // the distance takes time by the product of lengths
    if (word.empty() || word.size() > kLongestWord) {
        return {};
    }
    // Long words allow for more slips.
    std::size_t best = std::max<std::size_t>(2, word.size() / 3) + 1;
    std::string nearest;
    for (const std::string& name : names) {
        // A beginning is one slip, however much is missing: it was cut short, not misspelt.
        const std::size_t distance = name.starts_with(word) ? 1 : EditDistance(word, name);
        // A word of which nothing is left after the edits resembles everything.
        if (distance < best && distance < word.size()) {
            best = distance;
            nearest = name;
        }
    }
    return nearest;
}

std::string SuggestName(std::string_view word, const std::vector<std::string>& names,
                        std::string_view kind) {
    const std::string nearest = NearestName(word, names);
    return nearest.empty() ? fmt::format("; the {} are {}", kind, fmt::join(names, ", "))
                           : fmt::format("; did you mean '{}'?", nearest);
}

}  // namespace zamctl
