#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <type_traits>
#include <vector>

#include "tree_peers.h"

namespace zam_bench {
namespace {

using nlohmann::json;

json ToJson(const zuv::TValue& tree) {
    return tree.Visit([](const auto& value) -> json {
        using T = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<T, zuv::None>) {
            return nullptr;
        } else if constexpr (std::is_same_v<T, zuv::Vector>) {
            json array = json::array();
            for (const zuv::TValue& element : value) {
                array.push_back(ToJson(element));
            }
            return array;
        } else if constexpr (std::is_same_v<T, zuv::Map>) {
            json object = json::object();
            for (const auto& [key, element] : value) {
                object.emplace(key, ToJson(element));
            }
            return object;
        } else if constexpr (std::is_same_v<T, zuv::Blob>) {
            return json::binary(value);
        } else if constexpr (std::is_same_v<T, qor::types::Timestamp>) {
            return value.Count();
        } else {
            return value;
        }
    });
}

/// nlohmann::json and its CBOR.
class NlohmannPeer : public TreePeer {
public:
    const char* Name() const noexcept override { return "nlohmann_cbor"; }
    void Load(const zuv::TValue& tree) override { tree_ = ToJson(tree); }
    void Encode() override {
        bytes_ = std::vector<std::uint8_t>();
        json::to_cbor(tree_, bytes_);
    }
    void Decode() override { decoded_ = json::from_cbor(bytes_); }
    std::size_t EncodedBytes() const noexcept override { return bytes_.size(); }
    void Clear() override { decoded_ = json(); }

private:
    json tree_;
    json decoded_;
    std::vector<std::uint8_t> bytes_;
};

}  // namespace

std::unique_ptr<TreePeer> MakeNlohmannPeer() {
    return std::make_unique<NlohmannPeer>();
}

}  // namespace zam_bench
