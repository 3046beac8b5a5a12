#pragma once

#include <optional>
#include <string_view>

#include "zam_connector/zam_id.h"
#include "zuv/value.h"

/// Reading the keys of a record's tree, for use inside a guard. Thread-safe.

namespace zam_connector::zam_converter {

/// The node of a key that has to be there. Throws `std::bad_variant_access` when `node` is no map;
/// logs the key and throws `qel::ResultCodeException` "Not found" when it is absent.
const zuv::TValue& GetTreeNode(const zuv::TValue& node, std::string_view key);

/// The node of a key that may be absent, which is logged all the same; null then. Throws
/// `std::bad_variant_access` when `node` is no map.
const zuv::TValue* GetTreeNodeOptional(const zuv::TValue& node, std::string_view key);

/// Logs that the value of `key` is of the right kind but cannot be read, and throws
/// `qel::ResultCodeException` "Invalid argument".
[[noreturn]] void FailParse(std::string_view key);

/// The value of a node as a `T`, one of a tree's alternatives or an identifier. Throws
/// `std::bad_variant_access` on a node of another kind; an identifier is checked besides, see
/// `FailParse`, to which `key` goes.
template <typename T>
T ReadTreeNode(const zuv::TValue& node, std::string_view /*key*/) {
    return node.Get<T>();
}
template <>
ZamId ReadTreeNode<ZamId>(const zuv::TValue& node, std::string_view key);

/// `ReadTreeNode` of `GetTreeNode`: the value of a key that has to be there.
template <typename T>
T GetTreeNodeValue(const zuv::TValue& node, std::string_view key) {
    return ReadTreeNode<T>(GetTreeNode(node, key), key);
}

/// `ReadTreeNode` of `GetTreeNodeOptional`: empty when the key is absent.
template <typename T>
std::optional<T> GetTreeNodeValueOptional(const zuv::TValue& node, std::string_view key) {
    const zuv::TValue* const found = GetTreeNodeOptional(node, key);
    return found == nullptr ? std::nullopt : std::optional<T>(ReadTreeNode<T>(*found, key));
}

}  // namespace zam_connector::zam_converter
