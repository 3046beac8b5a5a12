#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <optional>
#include <utility>
#include <vector>

#include "zam_connector/zam_converter.h"

/// Vectors of records, for use inside a guard.

namespace zam_connector::zam_converter {

/// A vector of what `convert` gives for each record, in order; nothing as soon as it gives nothing.
template <typename Record, typename Convert>
std::optional<zuv::TValue> ConvertList(const std::vector<Record>& records, Convert&& convert) {
    zuv::Vector trees;
    trees.reserve(records.size());
    for (const Record& record : records) {
        std::optional<zuv::TValue> tree = convert(record);
        if (!tree) {
            return std::nullopt;
        }
        trees.push_back(*std::move(tree));
    }
    return zuv::TValue(std::move(trees));
}

/// Most records that room is made for before any of them has been read: a vector of many empty
/// elements is small, the records would not be.
inline constexpr std::size_t kMaxReservedRecords = 65536;

/// What `parse` gives for each element of a vector, in order; nothing as soon as it gives nothing.
/// Throws `std::bad_variant_access` on a node that is no vector.
template <typename Record>
std::optional<std::vector<Record>> ParseList(
    const zuv::TValue& node, std::optional<Record> (*parse)(const zuv::TValue& element) noexcept) {
    std::vector<Record> records;
    records.reserve(
        std::min<std::size_t>(ZamParamsListSize(node).value_or(0), kMaxReservedRecords));
    if (ParseZamParamList(node, std::back_inserter(records), parse) != kNoError) {
        return std::nullopt;
    }
    return records;
}

}  // namespace zam_connector::zam_converter
