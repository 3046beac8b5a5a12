#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "check.h"
#include "placed_reader.h"
#include "quick_reader.h"
#include "tree_json/tree_json.h"

/// An input is a text in typed JSON without byte order mark, as both readers take it.

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    using zam_connector::tree_json::JsonError;
    // A copy of its own, so that a look beyond the end shows.
    const std::vector<char> bytes(data, data + size);
    const std::string_view text(bytes.data(), bytes.size());
    const std::optional<zuv::TValue> quick = zam_connector::tree_json::ReadQuickly(text);
    std::optional<zuv::TValue> placed;
    try {
        placed = zam_connector::tree_json::ReadWithPlaces(text, "input");
    } catch (const JsonError&) {
        zam_fuzz::Check(!quick, "what one reader refuses the other refuses too");
        return 0;
    }
    // The quick one may leave a good text to the other.
    zam_fuzz::Check(!quick || quick->IsIdenticalTo(*placed), "both readers make the same tree");
    return 0;
}
