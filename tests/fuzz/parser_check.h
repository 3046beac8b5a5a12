#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "check.h"
#include "zuv/value.h"

/// What all targets of record parsers have in common. Their inputs are trees in typed JSON, which
/// people can read and write and which reaches every kind of node.

namespace zam_fuzz {

/// The tree of an input; nothing when it is no typed JSON.
std::optional<zuv::TValue> ReadTree(const uint8_t* data, std::size_t size);

/// How many failures the library has logged so far. The first call takes the log away from the
/// standard one, whose output would be most of the work; records are formatted all the same.
std::size_t LoggedFailures();

/// A tree that the library has made must be the same behind the service's door.
void CheckTravels(const zuv::TValue& tree);

/// Parses `tree`, checks that this succeeds exactly when `isExpected`, and that a failure is
/// logged.
template <typename Parse>
auto CheckParse(const zuv::TValue& tree, bool isExpected, Parse parse) {
    const zuv::TValue before = tree;
    const std::size_t failures = LoggedFailures();
    auto record = parse(tree);
    Check(tree.IsIdenticalTo(before), "parsing does not change the tree");
    Check(record.has_value() == isExpected, "a tree is parsed if and only if it has the shape");
    Check(record || LoggedFailures() > failures, "a failure is logged");
    return record;
}

/// Converts a record that was parsed to its tree, and checks that this loses nothing. Returns the
/// tree.
template <typename Record, typename Parse, typename Convert>
zuv::TValue CheckConvert(const Record& record, Parse parse, Convert convert) {
    const std::optional<zuv::TValue> tree = convert(record);
    Check(tree.has_value(), "a record that was parsed can be converted");
    const std::optional<Record> again = parse(*tree);
    Check(again.has_value(), "a tree that was converted can be parsed");
    Check(*again == record, "a record is the same behind its tree");
    const std::optional<zuv::TValue> treeAgain = convert(*again);
    Check(treeAgain && treeAgain->IsIdenticalTo(*tree), "equal records have identical trees");
    CheckTravels(*tree);
    return *tree;
}

}  // namespace zam_fuzz
