#include <optional>
#include <utility>

#include "json_text/json_token.h"
#include "placed_reader.h"
#include "quick_reader.h"
#include "tree_json/tree_json.h"

namespace zam_connector::tree_json {

zuv::TValue Read(std::string_view text, std::string_view name) {
    const std::string_view bare = zam_json::WithoutByteOrderMark(text);
    // Nearly every text is good. One that is not is read a second time, for the error's sake.
    if (std::optional<zuv::TValue> tree = ReadQuickly(bare)) {
        return *std::move(tree);
    }
    return ReadWithPlaces(bare, name);
}

}  // namespace zam_connector::tree_json
