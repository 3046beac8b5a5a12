#include "record_shape.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <utility>

#include "zam_connector/zam_converter.h"

namespace zamctl {
namespace {

namespace converter = zam_connector::zam_converter;
using zam_connector::ZamId;
using zam_json::JsonPart;
using zam_json::TreeText;

/// A tree of one record with every member that it can have, and one with those that it must have.
/// Made by the library, so that the names and kinds of the members stand nowhere twice.
struct Shape {
    zuv::TValue all;
    zuv::TValue required;
};

/// Gives every member that may be absent a value.
void FillOptionals(zam_connector::UpdateInfo& info) {
    info.eulaId.emplace();
    info.notUninstallable.emplace();
    for (auto* const text :
         {&info.targetProduct, &info.targetInternalVersion, &info.targetDisplayName,
          &info.targetDisplayVersion, &info.requiredPluginVersion, &info.requiredPluginUrl,
          &info.requiredZamsrvVersion}) {
        text->emplace();
    }
}

Shape ShapeOfUpdate() {
    zam_connector::UpdateInfo all;
    FillOptionals(all);
    return {converter::ConvertUpdateInfo(all).value(), converter::ConvertUpdateInfo({}).value()};
}

Shape ShapeOfStatus() {
    zuv::TValue tree = converter::ConvertUpdateStatusInfo({}).value();
    return {tree, tree};
}

Shape ShapeOfEula() {
    zuv::TValue tree = converter::ConvertEulaData({}, 1).value();
    return {tree, tree};
}

class Checker {
public:
    explicit Checker(const TreeText& source) : source_(source) {}

    /// Checks a vector of records.
    void List(const zuv::Path& path, const zuv::TValue& list, const Shape& shape) const {
        NeedKind(path, list, zuv::Kind::Vector);
        const auto& records = list.Get<zuv::Vector>();
        for (std::size_t index = 0; index < records.size(); ++index) {
            Members(Below(path, static_cast<unsigned long>(index)), records[index], shape);
        }
    }

    /// Checks that a map has the members of a shape, each of its kind, and no others.
    void Members(const zuv::Path& path, const zuv::TValue& node, const Shape& shape) const {
        NeedMap(path, node, shape.all, shape.required);
        for (const auto& [key, member] : node.Get<zuv::Map>()) {
            Member(Below(path, key), member, *shape.all.Find(key));
        }
    }

    /// Checks that a node is a map with some keys.
    void NeedMap(const zuv::Path& path, const zuv::TValue& node, const zuv::TValue& all,
                 const zuv::TValue& required) const {
        NeedKind(path, node, zuv::Kind::Map);
        for (const auto& [key, member] : node.Get<zuv::Map>()) {
            if (all.Find(key) == nullptr) {
                Fail(Below(path, key), JsonPart::Key,
                     fmt::format("the key is not known here, allowed are {}", Keys(all)));
            }
        }
        for (const auto& [key, member] : required.Get<zuv::Map>()) {
            if (node.Find(key) == nullptr) {
                Fail(path, JsonPart::Value, fmt::format("the member \"{}\" is missing", key));
            }
        }
    }

private:
    static zuv::Path Below(zuv::Path path, zuv::Level level) {
        path.push_back(std::move(level));
        return path;
    }

    static std::string Keys(const zuv::TValue& map) {
        std::string keys;
        for (const auto& [key, member] : map.Get<zuv::Map>()) {
            keys += (keys.empty() ? "" : ", ") + key;
        }
        return keys;
    }

    void Member(const zuv::Path& path, const zuv::TValue& node, const zuv::TValue& example) const {
        // Of all members only a text can be in pieces, and it can be whole too.
        if (example.Is<zuv::Vector>() && !node.Is<std::string>()) {
            NeedKind(path, node, zuv::Kind::Vector);
            const auto& pieces = node.Get<zuv::Vector>();
            for (std::size_t index = 0; index < pieces.size(); ++index) {
                NeedKind(Below(path, static_cast<unsigned long>(index)), pieces[index],
                         zuv::Kind::String);
            }
        } else if (!example.Is<zuv::Vector>()) {
            NeedKind(path, node, example.Kind());
        }
        const auto* const id = node.GetIf<zuv::Blob>();
        if (id != nullptr && (id->size() != sizeof(ZamId) + 1 || id->back() != 0)) {
            Fail(path, JsonPart::Value,
                 fmt::format("is no identifier: {} bytes and a zero byte behind them",
                             sizeof(ZamId)));
        }
    }

    void NeedKind(const zuv::Path& path, const zuv::TValue& node, zuv::Kind kind) const {
        if (node.Kind() != kind) {
            Fail(path, JsonPart::Value,
                 fmt::format("is of kind {}, allowed is {}", zuv::KindName(node.Kind()),
                             zuv::KindName(kind)));
        }
    }

    [[noreturn]] void Fail(const zuv::Path& path, JsonPart part, const std::string& message) const {
        zam_json::FailAtNode(source_, path, part, message);
    }

    const TreeText& source_;
};

}  // namespace

void CheckEulas(const TreeText& source, const zuv::TValue& tree) {
    Checker(source).List({}, tree, ShapeOfEula());
}

void CheckUpdates(const TreeText& source, const zuv::TValue& tree) {
    const Checker checker(source);
    const zuv::TValue lists = converter::ConvertAppUpdates({}).value();
    checker.NeedMap({}, tree, lists, lists);
    for (const auto& [key, list] : tree.Get<zuv::Map>()) {
        const bool isUpdates = key == "static_info";
        checker.List({key}, list, isUpdates ? ShapeOfUpdate() : ShapeOfStatus());
    }
}

}  // namespace zamctl
