#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "qel/export.h"
#include "qor/types/timestamp.h"
#include "zam_connector/app_eula.h"
#include "zam_connector/app_updates.h"
#include "zam_connector/result_code.h"
#include "zam_connector/update_info.h"
#include "zam_connector/update_status_info.h"
#include "zam_connector/zam_id.h"
#include "zuv/value.h"

/// Conversions between records and the trees that travel to and from the connector service.
///
/// None of them throws, `ParseZamParamList` excepted: an empty optional is failure, want of memory
/// included. What failed is logged at level 4, as "OPERATION failed with exception [CODE TEXT :
/// MESSAGE]" where nothing else is said. Arguments are not changed, and results share nothing with
/// them. All are thread-safe as long as no other thread changes the arguments meanwhile.

namespace zam_connector::zam_converter {

// Hashes, identifiers, times and sizes.

/// The hash that a string spells in `base`, by the rules of `std::stoul`: leading white space is
/// skipped, a sign is allowed (a negative number wraps around), base 16 may have a prefix 0x, base
/// 0 goes by the prefix, and reading stops at the first character that is no digit of the base.
/// Fails on a node of another kind, on a text that does not begin with a number, on a base that is
/// neither 0 nor 2 to 36, and on a number beyond 64 bits.
ZAM_API std::optional<unsigned long> ParseZamHash(const zuv::TValue& node, int base) noexcept;

/// `ParseZamHash` with base 10: despite the name the text is decimal.
ZAM_API std::optional<unsigned long> ParseZamHashFromBase64(const zuv::TValue& node) noexcept;

/// `ParseZamHash` with base 16.
ZAM_API std::optional<unsigned long> ParseZamHashFromHex(const zuv::TValue& node) noexcept;

/// The hash in decimal, without leading zeros: despite the name there is no Base64 about it. Fails
/// only for want of memory.
ZAM_API std::optional<std::string> ConvertZamHashToBase64(unsigned long hash) noexcept;

/// The hash in lower-case hexadecimal, without prefix and leading zeros. Fails only for want of
/// memory.
ZAM_API std::optional<std::string> ConvertZamHashToHex(unsigned long hash) noexcept;

/// The identifier in a blob. Fails on a node of another kind, on a blob that has not 17 bytes, and
/// on one whose last byte is not 0. The log calls this operation ConvertBlobToZamIdType.
ZAM_API std::optional<ZamId> ParseZamIdType(const zuv::TValue& node) noexcept;

/// The 17 bytes of an identifier in a tree: its own sixteen, then 0. Fails only for want of memory.
ZAM_API std::optional<std::vector<unsigned char>> ConvertZamIdTypeToBlob(const ZamId& id) noexcept;

/// The count of a time, unchanged. Never fails.
ZAM_API std::optional<long> ConvertTimeStamp(qor::types::Timestamp time) noexcept;

/// The time of a count, unchanged. Never fails.
ZAM_API std::optional<qor::types::Timestamp> ParseTimeStamp(long count) noexcept;

/// The number of elements of a vector. Fails on a node of another kind.
ZAM_API std::optional<unsigned long> ZamParamsListSize(const zuv::TValue& node) noexcept;

/// Applies `parse`, which takes a `const zuv::TValue&` and gives an optional, to each element of a
/// vector in order, and appends what it gives through the output iterator `out`. Returns 0, or
/// `kUnspecifiedError` at the first element that `parse` gives nothing for; what was appended
/// before stays. Throws `std::bad_variant_access` on a node that is no vector, and whatever `out`
/// and `parse` throw.
template <typename OutputIterator, typename Parse>
int ParseZamParamList(const zuv::TValue& node, OutputIterator out, Parse&& parse) {
    for (const zuv::TValue& element : node.Get<zuv::Vector>()) {
        auto parsed = parse(element);
        if (!parsed) {
            return kUnspecifiedError;
        }
        *out = *std::move(parsed);
        ++out;
    }
    return kNoError;
}

// Updates. The keys of the trees, and the kinds of their values, stand at the fields of the
// records.
//
// Parsers take a map; keys that they do not know are ignored. They read the keys in the order of
// the fields, and fail at the first that is absent though the record needs it, that holds a value
// of another kind, or whose identifier `ParseZamIdType` rejects. An absent key is logged by its
// name, also one that may be absent. Converters to trees write no key for an absent field, and fail
// only for want of memory unless something else is said.

/// The tree of an update.
ZAM_API std::optional<zuv::TValue> ConvertUpdateInfo(const UpdateInfo& info) noexcept;

/// The update of a tree. The nine fields that are optional in the record may be absent; the parse
/// goes on without them.
ZAM_API std::optional<UpdateInfo> ParseUpdateInfo(const zuv::TValue& node) noexcept;

/// A tree with nothing but "id" and "releasetime", to tell which update is meant.
ZAM_API std::optional<zuv::TValue> ConvertUpdateIdentityInfo(const UpdateInfo& info) noexcept;

/// The tree of a status.
ZAM_API std::optional<zuv::TValue> ConvertUpdateStatusInfo(const UpdateStatusInfo& info) noexcept;

/// The status of a tree. No key may be absent.
ZAM_API std::optional<UpdateStatusInfo> ParseUpdateStatusInfo(const zuv::TValue& node) noexcept;

/// A tree with nothing but "id" and "releasetime".
ZAM_API std::optional<zuv::TValue> ConvertUpdateStatusIdentityInfo(
    const UpdateStatusInfo& info) noexcept;

/// A map of two vectors, "static_info" and "dynamic_info", with the trees of the records in order.
/// Fails when a record cannot be converted.
ZAM_API std::optional<zuv::TValue> ConvertAppUpdates(const AppUpdates& updates) noexcept;

/// The records of such a map. Fails also when one of the two keys is absent or no vector, or an
/// element cannot be parsed.
ZAM_API std::optional<AppUpdates> ParseAppUpdates(const zuv::TValue& node) noexcept;

/// A map of two maps, "static_info" and "dynamic_info": the keys are the given numbers as
/// `ConvertZamHashToHex` writes them, the values the identity trees of the records. Fails when a
/// record cannot be converted. The log calls this operation ConvertUpdatesIdentityInfo.
///
/// Such a key may begin with a decimal digit. No path can spell a key of that form
/// (`zuv::IdState::KeyBeginsWithDigit`), so a tree with one cannot be flattened for the service.
ZAM_API std::optional<zuv::TValue> ConvertAppUpdatesIdentityInfo(
    const std::unordered_map<unsigned long, const UpdateInfo>& updates,
    const std::unordered_map<unsigned long, const UpdateStatusInfo>& statuses) noexcept;

// Licence agreements. What is said above of trees of updates holds for their trees too.

/// The tree of an agreement. The text is cut by `ConvertStringToZamParams` into pieces of at most
/// `pieceSize` bytes, which is to be above 0: fails otherwise.
ZAM_API std::optional<zuv::TValue> ConvertEulaData(const AppEula& eula, int pieceSize) noexcept;

/// A tree with nothing but "updeulaid" and "updeulareleasetime".
ZAM_API std::optional<zuv::TValue> ConvertEulaIdentityInfo(const AppEula& eula) noexcept;

/// A vector of the trees of the agreements, in order. Fails when one of them cannot be converted,
/// as with a `pieceSize` that is not above 0.
ZAM_API std::optional<zuv::TValue> ConvertEulas(const std::vector<AppEula>& eulas,
                                                int pieceSize) noexcept;

/// The agreement of a tree. No key may be absent. The text may be in pieces or in one string; fails
/// also when `ParseStringFromZamParams` does.
ZAM_API std::optional<AppEula> ParseEula(const zuv::TValue& node) noexcept;

/// The agreements of a vector, in order. Fails on a node of another kind, and when an element
/// cannot be parsed.
ZAM_API std::optional<std::vector<AppEula>> ParseEulas(const zuv::TValue& node) noexcept;

/// A vector of strings: consecutive pieces of the text of `pieceSize` bytes each, the last one with
/// the rest. Characters of several bytes may be cut. An empty text gives an empty vector. Fails
/// when `pieceSize` is not above 0.
ZAM_API std::optional<zuv::TValue> ConvertStringToZamParams(std::string_view text,
                                                            long pieceSize) noexcept;

/// A string as it stands, or the strings of a vector put together in order. Fails on a node of
/// another kind, and on a vector that holds something else.
ZAM_API std::optional<std::string> ParseStringFromZamParams(const zuv::TValue& node) noexcept;

}  // namespace zam_connector::zam_converter
