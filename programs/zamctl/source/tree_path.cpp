#include "tree_path.h"

#include <fmt/format.h>

#include <optional>
#include <string_view>
#include <utility>

#include "failure.h"
#include "printable.h"
#include "record_json/path_text.h"

namespace zamctl {

zuv::Path ParseTreePath(const std::string& name, const std::string& text) {
    // People write paths as they do those of files.
    const std::size_t start = text.starts_with('/') ? 1 : 0;
    std::optional<zuv::Path> path = zam_json::PathFromText(std::string_view(text).substr(start));
    if (!path) {
        throw UsageError(
            fmt::format("{}: {} is no path: keys and positions with a / between them, "
                        "as in limits/0/name",
                        name, Quote(text)));
    }
    return *std::move(path);
}

}  // namespace zamctl
