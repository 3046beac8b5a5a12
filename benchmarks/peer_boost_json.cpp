#include <boost/json.hpp>
#include <boost/json/src.hpp>
#include <string>
#include <type_traits>

#include "tree_peers.h"

namespace zam_bench {
namespace {

namespace json = boost::json;

json::value ToJson(const zuv::TValue& tree) {
    return tree.Visit([](const auto& value) -> json::value {
        using T = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<T, zuv::None>) {
            return nullptr;
        } else if constexpr (std::is_same_v<T, zuv::Vector>) {
            json::array array;
            for (const zuv::TValue& element : value) {
                array.push_back(ToJson(element));
            }
            return array;
        } else if constexpr (std::is_same_v<T, zuv::Map>) {
            json::object object;
            for (const auto& [key, element] : value) {
                object.emplace(key, ToJson(element));
            }
            return object;
        } else if constexpr (std::is_same_v<T, std::string>) {
            return json::string(value);
        } else if constexpr (std::is_same_v<T, zuv::Blob>) {
            // JSON has no bytes: the length of their base64.
            return json::string((value.size() + 2) / 3 * 4, 'x');
        } else if constexpr (std::is_same_v<T, qor::types::Timestamp>) {
            return value.Count();
        } else {
            return value;
        }
    });
}

/// Boost.JSON and its text.
class BoostJsonPeer : public TreePeer {
public:
    const char* Name() const noexcept override { return "boost_json"; }
    void Load(const zuv::TValue& tree) override { tree_ = ToJson(tree); }
    void Encode() override { text_ = json::serialize(tree_); }
    void Decode() override { decoded_ = json::parse(text_); }
    std::size_t EncodedBytes() const noexcept override { return text_.size(); }
    void Clear() override { decoded_ = nullptr; }

private:
    json::value tree_;
    json::value decoded_;
    std::string text_;
};

}  // namespace

std::unique_ptr<TreePeer> MakeBoostJsonPeer() {
    return std::make_unique<BoostJsonPeer>();
}

}  // namespace zam_bench
