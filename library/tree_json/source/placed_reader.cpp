#include "placed_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "double_name.h"
#include "json_text/base64.h"
#include "json_text/json_text.h"
#include "place.h"
#include "tree_json/tree_json.h"
#include "typed_keys.h"

namespace zam_connector::tree_json {
namespace {

using nlohmann::json;
using zam_json::JsonPart;

/// Turns the parsed text into a tree. The parts of the text move into the tree as they are read.
class Reader {
public:
    Reader(std::string_view text, std::string_view name) : text_(text), name_(name) {}

    zuv::TValue Tree();

private:
    using Taker = zuv::TValue (Reader::*)(json&, const Place&) const;
    struct TypedKey {
        std::string_view key;
        Taker take;
    };
    static const TypedKey kTypedKeys[];

    zuv::TValue Node(json& value, const Place& place) const;
    zuv::TValue Array(json& value, const Place& place) const;
    zuv::TValue Object(json& value, const Place& place) const;
    zuv::TValue SingleMember(const std::string& key, json& value, const Place& place) const;

    template <typename T>
    zuv::TValue Whole(json& value, const Place& place) const {
        return WholeNumber<T>(value, place);
    }
    zuv::TValue Time(json& value, const Place& place) const {
        return qor::types::Timestamp(WholeNumber<std::int64_t>(value, place));
    }
    zuv::TValue Double(json& value, const Place& place) const;
    zuv::TValue String(json& value, const Place& place) const { return Bytes(value, place); }
    zuv::TValue Blob(json& value, const Place& place) const;
    zuv::TValue Pairs(json& value, const Place& place) const;

    template <typename T>
    T WholeNumber(const json& value, const Place& place) const;
    std::string Bytes(const json& value, const Place& place) const;
    std::string Key(json& value, const Place& place) const;

    [[noreturn]] void Refuse(const json& value, const Place& place, std::string_view allowed) const;
    [[noreturn]] void Fail(const Place& place, JsonPart part, std::string message) const;
    [[noreturn]] void FailAt(std::size_t offset, std::string pointer, std::string message) const;

    std::string_view text_;
    std::string_view name_;
};

const Reader::TypedKey Reader::kTypedKeys[] = {
    {kInt8Key, &Reader::Whole<signed char>},
    {kInt16Key, &Reader::Whole<short>},
    {kInt32Key, &Reader::Whole<int>},
    {kUInt8Key, &Reader::Whole<unsigned char>},
    {kUInt16Key, &Reader::Whole<unsigned short>},
    {kUInt32Key, &Reader::Whole<unsigned>},
    {kUInt64Key, &Reader::Whole<unsigned long>},
    {kTimeKey, &Reader::Time},
    {kDoubleKey, &Reader::Double},
    {kStringKey, &Reader::String},
    {kBlobKey, &Reader::Blob},
    {kMapKey, &Reader::Pairs},
};

zuv::TValue Reader::Tree() {
    zam_json::JsonOutcome outcome =
        zam_json::ParseJson(text_, kMaxDepth, zam_json::WideIntegers::Discarded);
    if (outcome.fault) {
        FailAt(outcome.fault->offset, std::move(outcome.fault->pointer),
               std::move(outcome.fault->message));
    }
    return Node(*outcome.tree, Place());
}

zuv::TValue Reader::Node(json& value, const Place& place) const {
    switch (value.type()) {
        case json::value_t::boolean:
            return value.get<bool>();
        case json::value_t::number_integer:
        case json::value_t::number_unsigned:
        case json::value_t::discarded:
            // A plain whole number is a `long`; one beyond 64 bits, discarded, is refused there.
            return WholeNumber<long>(value, place);
        case json::value_t::number_float:
            return value.get<double>();
        case json::value_t::string:
            return std::move(value.get_ref<std::string&>());
        case json::value_t::array:
            return Array(value, place);
        case json::value_t::object:
            return Object(value, place);
        default:  // null; JSON text has none of the others
            return {};
    }
}

zuv::TValue Reader::Array(json& value, const Place& place) const {
    zuv::Vector vector;
    vector.reserve(value.size());
    for (std::size_t index = 0; index < value.size(); ++index) {
        vector.push_back(Node(value[index], Place(place, index)));
    }
    return vector;
}

zuv::TValue Reader::Object(json& value, const Place& place) const {
    auto& members = value.get_ref<json::object_t&>();
    // A dollar sign tells a kind in front of an only key: maps of several keys need no marks.
    if (members.size() == 1) {
        const std::string& key = members.begin()->first;
        if (!key.empty() && key.front() == kTypeMark) {
            return SingleMember(key, members.begin()->second, Place(place, key));
        }
    }
    zuv::Map map;
    for (auto& [key, member] : members) {
        // The parser keeps members in the order that the map has.
        map.emplace_hint(map.end(), key, Node(member, Place(place, key)));
    }
    return map;
}

zuv::TValue Reader::SingleMember(const std::string& key, json& value, const Place& place) const {
    if (key.size() > 1 && key[1] == kTypeMark) {
        zuv::Map map;
        map.emplace(key.substr(1), Node(value, place));
        return map;
    }
    const auto* const found = std::find_if(std::begin(kTypedKeys), std::end(kTypedKeys),
                                           [&](const TypedKey& typed) { return typed.key == key; });
    if (found == std::end(kTypedKeys)) {
        std::string known;
        for (const TypedKey& typed : kTypedKeys) {
            known += fmt::format("{}{}", known.empty() ? "" : ", ", typed.key);
        }
        Fail(place, JsonPart::Key,
             fmt::format("the key names no kind, allowed are {}; the only key of a map is written "
                         "with one more dollar sign",
                         known));
    }
    return (this->*found->take)(value, place);
}

zuv::TValue Reader::Double(json& value, const Place& place) const {
    const auto* const name = value.get_ptr<const std::string*>();
    const auto number = name == nullptr ? std::nullopt : DoubleOfName(*name);
    if (!number) {
        Refuse(value, place,
               R"("nan", "inf", "-inf" or the bits of a NaN as 0x and 16 hexadecimal digits)");
    }
    return *number;
}

zuv::TValue Reader::Blob(json& value, const Place& place) const {
    const std::string bytes = Bytes(value, place);
    return zuv::Blob(bytes.begin(), bytes.end());
}

zuv::TValue Reader::Pairs(json& value, const Place& place) const {
    if (!value.is_array()) {
        Refuse(value, place, "an array of pairs [key, value]");
    }
    zuv::Map map;
    for (std::size_t index = 0; index < value.size(); ++index) {
        json& pair = value[index];
        const Place pairPlace(place, index);
        if (!pair.is_array()) {
            Refuse(pair, pairPlace, "a pair [key, value]");
        }
        if (pair.size() != 2) {
            Fail(pairPlace, JsonPart::Value,
                 fmt::format("has {} elements, allowed is a pair [key, value]", pair.size()));
        }
        const Place keyPlace(pairPlace, std::size_t{0});
        const auto [entry, isNew] = map.try_emplace(Key(pair[0], keyPlace));
        if (!isNew) {
            Fail(keyPlace, JsonPart::Value, "the key stands twice in the same map");
        }
        entry->second = Node(pair[1], Place(pairPlace, 1));
    }
    return map;
}

template <typename T>
T Reader::WholeNumber(const json& value, const Place& place) const {
    constexpr T kLeast = std::numeric_limits<T>::min();
    constexpr T kMost = std::numeric_limits<T>::max();
    // First: the parser's unsigned numbers count as its integers too.
    if (value.is_number_unsigned()) {
        if (std::in_range<T>(value.get<std::uint64_t>())) {
            return static_cast<T>(value.get<std::uint64_t>());
        }
    } else if (value.is_number_integer() && std::in_range<T>(value.get<std::int64_t>())) {
        return static_cast<T>(value.get<std::int64_t>());
    }
    Refuse(value, place, fmt::format("a whole number from {} to {}", +kLeast, +kMost));
}

std::string Reader::Bytes(const json& value, const Place& place) const {
    const auto* const text = value.get_ptr<const std::string*>();
    auto bytes = text == nullptr ? std::nullopt : zam_json::DecodeBase64(*text);
    if (!bytes) {
        Refuse(value, place, "a text in Base64, with padding and no stray bits");
    }
    return *std::move(bytes);
}

std::string Reader::Key(json& value, const Place& place) const {
    if (value.is_string()) {
        return std::move(value.get_ref<std::string&>());
    }
    if (!value.is_object() || value.size() != 1 || value.begin().key() != kStringKey) {
        Refuse(value, place, R"(a text or {"$string": Base64})");
    }
    return Bytes(value.front(), Place(place, kStringKey));
}

void Reader::Refuse(const json& value, const Place& place, std::string_view allowed) const {
    Fail(place, JsonPart::Value, zam_json::RefusalText(value, text_, place.Pointer(), allowed));
}

void Reader::Fail(const Place& place, JsonPart part, std::string message) const {
    std::string pointer = place.Pointer();
    // A second walk through the text, for this one place: good texts do not pay for places.
    const auto offset = zam_json::FindInJson(text_, pointer, part);
    FailAt(offset.value_or(0), std::move(pointer), std::move(message));
}

void Reader::FailAt(std::size_t offset, std::string pointer, std::string message) const {
    const auto position = zam_json::PositionAt(text_, offset);
    throw JsonError(name_, position.line, position.column, std::move(pointer), std::move(message));
}

}  // namespace

zuv::TValue ReadWithPlaces(std::string_view text, std::string_view name) {
    return Reader(text, name).Tree();
}

}  // namespace zam_connector::tree_json
