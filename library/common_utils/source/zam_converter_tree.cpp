#include "zam_converter_tree.h"

#include "common/log.h"
#include "qel/exception.h"
#include "qel/result_code.h"
#include "zam_connector/zam_converter.h"

namespace zam_connector::zam_converter {
namespace {

constexpr char kSourceFile[] = "zam_converter_tree";
constexpr int kNotFound = qel::FromBits(0x8000004CU);

const zuv::TValue* Find(const zuv::TValue& node, std::string_view key,
                        const common::LogSite& site) {
    const auto& map = node.Get<zuv::Map>();
    const auto found = map.find(key);
    if (found == map.end()) {
        common::Log(zor::logger::kLevelError, site, "GetTreeNodeValue: Not found: {}", key);
        return nullptr;
    }
    return &found->second;
}

}  // namespace

const zuv::TValue& GetTreeNode(const zuv::TValue& node, std::string_view key) {
    const common::LogSite site = common::Here(kSourceFile, "GetTreeNodeValue");
    const zuv::TValue* const found = Find(node, key, site);
    if (found == nullptr) {
        throw qel::ResultCodeException(kNotFound).At(site.file, site.line);
    }
    return *found;
}

const zuv::TValue* GetTreeNodeOptional(const zuv::TValue& node, std::string_view key) {
    return Find(node, key, common::Here(kSourceFile, "GetTreeNodeValueOptional"));
}

void FailParse(std::string_view key) {
    const common::LogSite site = common::Here(kSourceFile, "GetTreeNodeValue");
    common::Log(zor::logger::kLevelError, site, "GetTreeNodeValue: parse error {}", key);
    throw qel::ResultCodeException(qel::kInvalidArgument).At(site.file, site.line);
}

template <>
ZamId ReadTreeNode<ZamId>(const zuv::TValue& node, std::string_view key) {
    // Asked first: a node of another kind is not an identifier that was rejected.
    static_cast<void>(node.Get<zuv::Blob>());
    const std::optional<ZamId> id = ParseZamIdType(node);
    if (!id) {
        FailParse(key);
    }
    return *id;
}

}  // namespace zam_connector::zam_converter
