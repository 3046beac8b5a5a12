#include "tree_path.h"

#include <fmt/format.h>

#include <string_view>

#include "failure.h"
#include "printable.h"

namespace zamctl {
namespace {

/// How the service writes paths: the separator, and what else may not stand in a key.
const zuv::IdSpec& PathSpec() {
    static const zuv::IdSpec kSpec{.chars = "/\\\"'`%", .maxIndex = 0};
    return kSpec;
}

}  // namespace

zuv::Path ParseTreePath(const std::string& name, const std::string& text) {
    const std::size_t start = text.starts_with('/') ? 1 : 0;
    auto [path, state] = zuv::FromString(std::string_view(text).substr(start), PathSpec());
    if (state != zuv::IdState::Ok) {
        throw UsageError(
            fmt::format("{}: {} is no path: keys and positions with a / between them, "
                        "as in limits/0/name",
                        name, Quote(text)));
    }
    return path;
}

std::string TreePathText(const zuv::Path& path) {
    return zuv::ToString(path, PathSpec()).first;
}

}  // namespace zamctl
