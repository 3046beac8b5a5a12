#include "zuv/path.h"

#include <cstddef>

#include "zuv/path_codec.h"

namespace zuv {

template <>
std::pair<std::string, IdState> ToString<Path>(const Path& path, const IdSpec& spec) {
    const PathCodec codec(spec);
    IdState state = codec.State();
    PathText text;
    for (const Level& level : path) {
        if (state != IdState::Ok) {
            break;
        }
        state = codec.Append(text, level);
    }
    return {state == IdState::Ok ? std::string(text.View()) : std::string(), state};
}

std::pair<Path, IdState> FromString(std::string_view text, const IdSpec& spec) {
    const PathCodec codec(spec);
    IdState state = codec.State();
    Path path;
    PathCodec::LevelText level;
    for (std::size_t offset = 0; offset < text.size() && state == IdState::Ok;) {
        state = codec.Read(text, offset, level);
        if (state == IdState::Ok) {
            if (level.isPosition) {
                path.emplace_back(level.position);
            } else {
                path.emplace_back(std::in_place_type<std::string>, level.key);
            }
            offset = level.next;
        }
    }
    if (state != IdState::Ok) {
        path.clear();
    }
    return {std::move(path), state};
}

}  // namespace zuv
