#include <google/protobuf/struct.pb.h>

#include <stdexcept>
#include <string>
#include <type_traits>

#include "tree_peers.h"

namespace zam_bench {
namespace {

using google::protobuf::Value;

void Fill(Value& to, const zuv::TValue& tree) {
    tree.Visit([&to](const auto& value) {
        using T = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<T, zuv::None>) {
            to.set_null_value(google::protobuf::NULL_VALUE);
        } else if constexpr (std::is_same_v<T, zuv::Vector>) {
            for (const zuv::TValue& element : value) {
                Fill(*to.mutable_list_value()->add_values(), element);
            }
        } else if constexpr (std::is_same_v<T, zuv::Map>) {
            auto& fields = *to.mutable_struct_value()->mutable_fields();
            for (const auto& [key, element] : value) {
                Fill(fields[key], element);
            }
        } else if constexpr (std::is_same_v<T, std::string>) {
            to.set_string_value(value);
        } else if constexpr (std::is_same_v<T, zuv::Blob>) {
            // It has no bytes, and its texts are UTF-8: the blob's length in plain characters, to
            // the peer's advantage.
            to.set_string_value(std::string(value.size(), 'x'));
        } else if constexpr (std::is_same_v<T, bool>) {
            to.set_bool_value(value);
        } else if constexpr (std::is_same_v<T, qor::types::Timestamp>) {
            to.set_number_value(static_cast<double>(value.Count()));
        } else {
            to.set_number_value(static_cast<double>(value));
        }
    });
}

/// google.protobuf.Value.
class ProtobufPeer : public TreePeer {
public:
    const char* Name() const noexcept override { return "protobuf_struct"; }
    void Load(const zuv::TValue& tree) override {
        tree_.Clear();
        Fill(tree_, tree);
    }
    void Encode() override {
        bytes_ = std::string();
        if (!tree_.SerializeToString(&bytes_)) {
            throw std::runtime_error("protobuf did not encode the tree");
        }
    }
    void Decode() override {
        decoded_ = std::make_unique<Value>();
        if (!decoded_->ParseFromString(bytes_)) {
            throw std::runtime_error("protobuf did not decode the tree");
        }
    }
    std::size_t EncodedBytes() const noexcept override { return bytes_.size(); }
    void Clear() override { decoded_.reset(); }

private:
    Value tree_;
    std::unique_ptr<Value> decoded_;
    std::string bytes_;
};

}  // namespace

std::unique_ptr<TreePeer> MakeProtobufPeer() {
    return std::make_unique<ProtobufPeer>();
}

}  // namespace zam_bench
