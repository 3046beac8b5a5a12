#include "tree_path.h"

#include <fmt/format.h>

#include <string_view>

#include "common/id_specification.h"
#include "failure.h"
#include "printable.h"

namespace zamctl {

using zam_connector::common::meta::IdSpecification;

zuv::Path ParseTreePath(const std::string& name, const std::string& text) {
    const std::size_t start = text.starts_with('/') ? 1 : 0;
    auto [path, state] = zuv::FromString(std::string_view(text).substr(start), IdSpecification());
    if (state != zuv::IdState::Ok) {
        throw UsageError(
            fmt::format("{}: {} is no path: keys and positions with a / between them, "
                        "as in limits/0/name",
                        name, Quote(text)));
    }
    return path;
}

std::string TreePathText(const zuv::Path& path) {
    return zuv::ToString(path, IdSpecification()).first;
}

}  // namespace zamctl
