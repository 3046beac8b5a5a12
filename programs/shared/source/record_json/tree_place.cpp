#include "record_json/tree_place.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <utility>
#include <variant>

#include "json_text/base64.h"
#include "json_text/json_text.h"
#include "tree_json/tree_json.h"
#include "typed_keys.h"

namespace zam_json {
namespace {

using nlohmann::json;

using zam_connector::tree_json::kMapKey;
using zam_connector::tree_json::kStringKey;
using zam_connector::tree_json::kTypeMark;

/// The one member of an object that stands for something else than its own members; null when the
/// object stands for itself.
const std::pair<const std::string, json>* SpecialMember(const json& node) {
    const auto* const members = node.get_ptr<const json::object_t*>();
    if (members == nullptr || members->size() != 1 || members->begin()->first.empty() ||
        members->begin()->first.front() != kTypeMark) {
        return nullptr;
    }
    return &*members->begin();
}

/// The key of a pair of a `$map`: a text, or a `$string`.
std::string KeyOfPair(const json& key) {
    if (const auto* const text = key.get_ptr<const std::string*>()) {
        return *text;
    }
    return DecodeBase64(key.at(kStringKey).get_ref<const std::string&>()).value_or("");
}

/// A node of the text, and the pointer to it.
struct Spot {
    const json* node;
    std::string pointer;
};

std::optional<Spot> Pair(const json& pairs, const std::string& key) {
    for (std::size_t index = 0; index < pairs.size(); ++index) {
        if (KeyOfPair(pairs[index].at(0)) == key) {
            return Spot{&pairs[index].at(1), fmt::format("/{}/{}/1", kMapKey, index)};
        }
    }
    return std::nullopt;
}

std::optional<Spot> Member(const json& node, const std::string& key) {
    if (const auto* const special = SpecialMember(node)) {
        if (special->first == kMapKey) {
            return Pair(special->second, key);
        }
        return special->first == kTypeMark + key
                   ? std::optional(Spot{&special->second, PointerStep(special->first)})
                   : std::nullopt;
    }
    const auto found = node.find(key);
    return found == node.end() ? std::nullopt : std::optional(Spot{&*found, PointerStep(key)});
}

std::optional<Spot> Step(const json& node, const zuv::Level& level) {
    if (const auto* const key = std::get_if<std::string>(&level)) {
        return node.is_object() ? Member(node, *key) : std::nullopt;
    }
    const unsigned long index = std::get<unsigned long>(level);
    return node.is_array() && index < node.size()
               ? std::optional(Spot{&node[index], fmt::format("/{}", index)})
               : std::nullopt;
}

}  // namespace

std::string PointerOf(std::string_view text, const zuv::Path& path) {
    const JsonOutcome outcome = ParseJson(
        WithoutByteOrderMark(text), zam_connector::tree_json::kMaxDepth, WideIntegers::Discarded);
    std::string pointer;
    const json* node = outcome.tree.get();
    for (const zuv::Level& level : path) {
        const std::optional<Spot> next = node == nullptr ? std::nullopt : Step(*node, level);
        if (!next) {
            break;
        }
        node = next->node;
        pointer += next->pointer;
    }
    return pointer;
}

}  // namespace zam_json
