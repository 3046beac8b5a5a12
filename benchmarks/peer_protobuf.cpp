#include <stdexcept>
#include <string>

#include "to_protobuf.h"
#include "tree_peers.h"

namespace zam_bench {
namespace {

using google::protobuf::Value;

/// google.protobuf.Value.
class ProtobufPeer : public TreePeer {
public:
    const char* Name() const noexcept override { return "protobuf_struct"; }
    void Load(const zuv::TValue& tree) override {
        tree_.Clear();
        FillProtobuf(tree_, tree);
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
