#include "record_json/path_text.h"

#include <utility>

#include "common/id_specification.h"

namespace zam_json {

using zam_connector::common::meta::IdSpecification;

std::optional<zuv::Path> PathFromText(std::string_view text) {
    auto [path, state] = zuv::FromString(text, IdSpecification());
    return state == zuv::IdState::Ok ? std::optional(std::move(path)) : std::nullopt;
}

std::string PathText(const zuv::Path& path) {
    return zuv::ToString(path, IdSpecification()).first;
}

}  // namespace zam_json
