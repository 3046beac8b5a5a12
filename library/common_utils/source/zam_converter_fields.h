#pragma once

#include <optional>
#include <tuple>
#include <utility>

#include "zam_connector/zam_converter.h"
#include "zam_converter_guard.h"
#include "zam_converter_tree.h"

/// Records whose trees are maps with one key per field. A tuple of `Field`s tells keys, members and
/// their order; it is walked to write a tree and to read one.

namespace zam_connector::zam_converter {

/// A key of the tree and the member that it holds. The type of the member decides the kind of the
/// value, and an optional one whether the key may be absent.
template <typename Record, typename Member>
struct Field {
    constexpr Field(const char* treeKey, Member Record::*recordMember,
                    const char* textOfFailure = nullptr) noexcept
        : key(treeKey), member(recordMember), writeFailure(textOfFailure) {}

    const char* key;
    Member Record::*member;
    const char* writeFailure;  ///< logged when an identifier cannot be written; of those only
};

/// Puts a value under a key of a map that has none of it. False when an identifier could not be
/// written.
template <typename T>
bool PutTreeNodeValue(zuv::Map& map, const char* key, const T& value) {
    map.emplace(key, value);
    return true;
}
inline bool PutTreeNodeValue(zuv::Map& map, const char* key, const ZamId& id) {
    std::optional<zuv::Blob> blob = ConvertZamIdTypeToBlob(id);
    if (!blob) {
        return false;
    }
    map.emplace(key, *std::move(blob));
    return true;
}
template <typename T>
bool PutTreeNodeValue(zuv::Map& map, const char* key, const std::optional<T>& value) {
    return !value || PutTreeNodeValue(map, key, *value);
}

/// The tree of a record, its keys set in the order of the fields. When an identifier cannot be
/// written, logs the text of its field at `site` and gives nothing.
template <typename Record, typename... Members>
std::optional<zuv::TValue> WriteFields(const common::LogSite& site, const Record& record,
                                       const std::tuple<Field<Record, Members>...>& fields) {
    zuv::Map map;
    const char* failure = nullptr;
    const auto write = [&](const auto& field) {
        if (PutTreeNodeValue(map, field.key, record.*field.member)) {
            return true;
        }
        failure = field.writeFailure;
        return false;
    };
    const bool written =
        std::apply([&](const auto&... field) { return (write(field) && ...); }, fields);
    if (!written) {
        return LogFailed(site, failure);
    }
    return zuv::TValue(std::move(map));
}

/// Reads a key into a member.
template <typename T>
void ReadField(const zuv::TValue& node, const char* key, T& member) {
    member = GetTreeNodeValue<T>(node, key);
}
template <typename T>
void ReadField(const zuv::TValue& node, const char* key, std::optional<T>& member) {
    member = GetTreeNodeValueOptional<T>(node, key);
}

/// The record of a tree, its keys read in the order of the fields. Throws at the first that fails.
template <typename Record, typename... Members>
Record ReadFields(const zuv::TValue& node, const std::tuple<Field<Record, Members>...>& fields) {
    Record record;
    std::apply(
        [&](const auto&... field) { (ReadField(node, field.key, record.*field.member), ...); },
        fields);
    return record;
}

}  // namespace zam_connector::zam_converter
