#include "log/log_folding.h"

#include <algorithm>
#include <exception>

namespace zam_platform {

bool LogFolding::IsRepeated(std::string_view line, Time now) const noexcept {
    return std::any_of(written_.begin(), written_.end(), [&](const Written& written) {
        return written.isUsed && now - written.time < kSpan && written.line == line;
    });
}

void LogFolding::Remember(std::string_view line, Time now) noexcept {
    Written* place = Find(line);
    if (place == nullptr) {
        place = std::min_element(written_.begin(), written_.end(),
                                 [](const Written& left, const Written& right) {
                                     return left.isUsed < right.isUsed ||
                                            (left.isUsed == right.isUsed && left.time < right.time);
                                 });
        place->isUsed = false;
        try {
            place->line = line;
        } catch (const std::exception&) {
            return;
        }
        place->isUsed = true;
    }
    place->time = now;
}

LogFolding::Written* LogFolding::Find(std::string_view line) noexcept {
    const auto found = std::find_if(
        written_.begin(), written_.end(),
        [line](const Written& written) { return written.isUsed && written.line == line; });
    return found == written_.end() ? nullptr : &*found;
}

}  // namespace zam_platform
