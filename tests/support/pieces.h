#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "common/raw_zam_param_casts.h"
#include "common/raw_zam_pieces.h"

namespace zam_test {

/// Appends a list in pieces of so many records, as it crosses to another process.
inline void AppendInPieces(const std::vector<zam_connector::common::RawZamParam>& list,
                           std::size_t recordsPerPiece,
                           zam_connector::common::RawZamPieces& pieces) {
    std::vector<unsigned char> bytes;
    for (std::size_t at = 0; at < list.size(); at += recordsPerPiece) {
        const auto begin = list.begin() + static_cast<std::ptrdiff_t>(at);
        const std::size_t count = std::min(recordsPerPiece, list.size() - at);
        const std::vector<zam_connector::common::RawZamParam> records(
            begin, begin + static_cast<std::ptrdiff_t>(count));
        std::size_t room = 1;
        for (const zam_connector::common::RawZamParam& record : records) {
            room += record.value.size() + record.path.size() + 8;
        }
        bytes.resize(room);
        vd_arena arena{};
        vd_arena_init(&arena, bytes.data(), static_cast<std::uint32_t>(room));
        pieces.Append(zam_connector::common::CastToVd(records, &arena), &arena);
    }
}

}  // namespace zam_test
