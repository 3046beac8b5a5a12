#include "upload_reader.h"

#include <fmt/format.h>

#include <optional>
#include <utility>

#include "failure.h"
#include "record_json/app_info_json.h"
#include "record_json/tree_records.h"
#include "record_shape.h"
#include "tree_json/tree_json.h"
#include "zam_connector/zam_converter.h"

namespace zamctl {
namespace {

namespace converter = zam_connector::zam_converter;
namespace tree_json = zam_connector::tree_json;
using zam_json::TreeText;

constexpr char kRemedy[] = "Correct it and upload it again; nothing was sent.";

/// Runs `read`; what is wrong with the JSON becomes a `UsageError`.
template <typename Read>
auto Reading(Read&& read) {
    try {
        return read();
    } catch (const zam_json::JsonError& error) {
        throw UsageError(error.what(), kRemedy);
    } catch (const tree_json::JsonError& error) {
        throw UsageError(error.what(), kRemedy);
    }
}

/// What the checks of this module have let through, the library takes.
template <typename Value>
Value Taken(std::optional<Value> value, const Input& input) {
    if (!value) {
        throw UsageError(fmt::format("{}: cannot be converted", input.name), kRemedy);
    }
    return *std::move(value);
}

/// Reads a tree, checks it with `check`, and gives the records that `parse` makes of it, once
/// `convert` has made the tree of them that will travel and its weights are no hindrance.
template <typename Check, typename Parse, typename Convert>
auto ReadRecords(const Input& input, Check&& check, Parse&& parse, Convert&& convert) {
    return Reading([&] {
        const TreeText source{input.name, input.text};
        const zuv::TValue tree = tree_json::Read(input.text, input.name);
        check(source, tree);
        auto records = Taken(parse(tree), input);
        zam_json::FlattenToSend(source, Taken(convert(records), input));
        return records;
    });
}

}  // namespace

zam_connector::AppInfo ReadAppInfo(const Input& input) {
    return Reading([&] { return zam_json::ReadAppInfo(input.name, input.text); });
}

zam_connector::DynamicAppInfo ReadDynamicAppInfo(const Input& input) {
    return Reading([&] { return zam_json::ReadDynamicAppInfo(input.name, input.text); });
}

std::vector<zam_connector::AppEula> ReadEulas(const Input& input) {
    constexpr int kPieceBytes = 32768;  // as the library cuts the texts
    return ReadRecords(input, CheckEulas, converter::ParseEulas, [](const auto& eulas) {
        return converter::ConvertEulas(eulas, kPieceBytes);
    });
}

zam_connector::AppUpdates ReadUpdates(const Input& input) {
    return ReadRecords(input, CheckUpdates, converter::ParseAppUpdates,
                       converter::ConvertAppUpdates);
}

zam_connector::ZamProductSettings ReadProductSettings(const Input& input) {
    return Reading([&] {
        zuv::TValue tree = tree_json::Read(input.text, input.name);
        zam_json::FlattenToSend({input.name, input.text}, tree);
        return zam_connector::ZamProductSettings{std::move(tree)};
    });
}

}  // namespace zamctl
