#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qel/export.h"
#include "qx/zam_types.h"
#include "zuv/path.h"
#include "zuv/value.h"

namespace zam_connector::common {

/// A list of raw parameters as it came, piece by piece: a fraction of the memory of the records
/// made of it, in one block for each piece. Not thread-safe.
class ZAM_API RawZamPieces {
public:
    RawZamPieces() = default;
    RawZamPieces(const RawZamPieces&) = delete;
    RawZamPieces& operator=(const RawZamPieces&) = delete;

    /// Appends the records of a message; throws as `AppendFromVd`, with nothing appended then.
    void Append(const qx_zam_connector_ZamTypes_ZamParams& piece, const vd_arena* arena);

    /// Records in all pieces.
    std::size_t Count() const noexcept { return count_; }

    const std::vector<std::string>& Pieces() const noexcept { return pieces_; }

private:
    std::vector<std::string> pieces_;  ///< none of them empty, each checked
    std::size_t count_ = 0;
};

/// As `Deserialize` of the list that the pieces hold.
ZAM_API std::pair<int, std::string> Deserialize(const RawZamPieces& pieces, zuv::Path& root,
                                                zuv::TValue& tree);

}  // namespace zam_connector::common
