#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "common/raw_zam_param.h"
#include "json_text/json_document.h"
#include "qx/product_data_holder.h"
#include "zuv/path.h"
#include "zuv/value.h"

/// Trees of typed JSON texts, made ready to travel. Thread-safe.

namespace zam_json {

/// Largest value and path text of one record, together: such a record still goes through the arena
/// of a piece in either direction.
inline constexpr std::size_t kMaxRecordBytes =
    qx_zam_connector_ProductDataHolder_SendData_request_arena - 1;

/// A typed JSON text that was read without a fault, and what it is called in errors.
struct TreeText {
    std::string name;
    std::string_view text;
};

/// Throws a `JsonError` about the node at `path`, or about its key.
[[noreturn]] void FailAtNode(const TreeText& source, const zuv::Path& path, JsonPart part,
                             std::string_view message);

/// The records of a tree that `source` tells. Throws `JsonError` for a key that no path can hold
/// and for a value that weighs more than `kMaxRecordBytes` together with its path: neither can be
/// sent.
std::vector<zam_connector::common::RawZamParam> FlattenToSend(const TreeText& source,
                                                              const zuv::TValue& tree);

}  // namespace zam_json
