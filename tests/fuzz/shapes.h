#pragma once

#include <string_view>
#include <vector>

#include "zuv/value.h"

/// What trees of records have to look like, as the documentation of the records says it and without
/// the library's parsers.

namespace zam_fuzz {

/// A key of a record's tree.
struct Field {
    std::string_view key;
    zuv::Kind kind;
    bool isRequired = true;
    bool isId = false;  ///< a blob of 17 bytes that ends with 0
};

const std::vector<Field>& UpdateInfoFields();
const std::vector<Field>& UpdateStatusInfoFields();

bool IsUpdateInfo(const zuv::TValue& tree);
bool IsUpdateStatusInfo(const zuv::TValue& tree);
bool IsAppUpdates(const zuv::TValue& tree);
bool IsEula(const zuv::TValue& tree);
bool IsEulas(const zuv::TValue& tree);
/// A string or a vector of strings.
bool IsText(const zuv::TValue& tree);

/// Whether both trees have the same of the fields, with identical values.
bool HaveSameFields(const zuv::TValue& left, const zuv::TValue& right,
                    const std::vector<Field>& fields);

}  // namespace zam_fuzz
