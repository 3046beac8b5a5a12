#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "check.h"
#include "common/arena.h"
#include "common/raw_zam_param_casts.h"
#include "common/raw_zam_pieces.h"

/// An input is a piece of a raw parameter list as it stands in a message's arena.

namespace {

using zam_connector::common::RawZamParam;
using zam_fuzz::Check;
using Bytes = std::vector<unsigned char>;
using List = std::vector<RawZamParam>;

vd_arena ArenaOf(Bytes& bytes) {
    vd_arena arena{};
    vd_arena_init(&arena, bytes.data(), static_cast<uint32_t>(bytes.size()));
    return arena;
}

void CheckEncoded(const List& list, const Bytes& bytes) {
    Bytes own(bytes.size());
    vd_arena arena = ArenaOf(own);
    const auto piece = zam_connector::common::CastToVd(list, &arena);
    Check(piece.records.offset == 0 && piece.records.length == bytes.size(),
          "a list takes the bytes that it was read from");
    Check(own == bytes, "a list is written as the bytes that it was read from");
    if (bytes.empty()) {
        return;
    }
    own.pop_back();
    arena = ArenaOf(own);
    try {
        zam_connector::common::CastToVd(list, &arena);
        Check(false, "a list does not fit into one byte less");
    } catch (const std::length_error&) {
        Check(arena.used == 0, "a list that does not fit takes nothing");
    }
}

void CheckRefused(zam_connector::common::RawZamPieces& pieces, const vd_arena& arena) {
    try {
        pieces.Append({{0, arena.used}}, &arena);
        Check(false, "a piece is refused whichever way it is read");
    } catch (const std::invalid_argument&) {
        Check(pieces.Count() == 0, "a piece that is refused leaves nothing");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const Bytes input(data, data + size);
    Bytes bytes = input;
    vd_arena arena = ArenaOf(bytes);
    arena.used = arena.capacity;
    const List before{{{1, 2, 3}, "before/"}};
    List list = before;
    zam_connector::common::RawZamPieces pieces;
    try {
        zam_connector::common::AppendFromVd({{0, arena.used}}, &arena, list);
    } catch (const std::invalid_argument& error) {
        Check(error.what()[0] != '\0', "an error says what is wrong");
        Check(list == before, "a piece that is refused appends nothing");
        CheckRefused(pieces, arena);
        return 0;
    }
    Check(bytes == input, "reading changes no byte");
    Check(list.front() == before.front(), "what stands before a piece's records stays");
    list.erase(list.begin());
    Check(list.empty() == input.empty(), "only the empty piece has no records");
    Check(zam_connector::common::CastFromVd({{0, arena.used}}, &arena) == list,
          "appending and reading give the same records");
    CheckEncoded(list, input);
    pieces.Append({{0, arena.used}}, &arena);
    Check(pieces.Count() == list.size(), "a piece has as many records where it lies");
    Check(pieces.Count() == 0 || pieces.Pieces().front() == std::string(input.begin(), input.end()),
          "a piece is kept as it came");
    return 0;
}
