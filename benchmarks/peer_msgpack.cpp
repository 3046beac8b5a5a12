#include <msgpack.hpp>
#include <string>
#include <type_traits>

#include "tree_peers.h"

namespace zam_bench {
namespace {

template <typename Packer>
void Pack(Packer& packer, const zuv::TValue& tree) {
    tree.Visit([&packer](const auto& value) {
        using T = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<T, zuv::None>) {
            packer.pack_nil();
        } else if constexpr (std::is_same_v<T, zuv::Vector>) {
            packer.pack_array(static_cast<std::uint32_t>(value.size()));
            for (const zuv::TValue& element : value) {
                Pack(packer, element);
            }
        } else if constexpr (std::is_same_v<T, zuv::Map>) {
            packer.pack_map(static_cast<std::uint32_t>(value.size()));
            for (const auto& [key, element] : value) {
                packer.pack(key);
                Pack(packer, element);
            }
        } else if constexpr (std::is_same_v<T, qor::types::Timestamp>) {
            packer.pack(value.Count());
        } else {
            packer.pack(value);
        }
    });
}

/// msgpack-cxx: its own tree of objects, packed and unpacked.
class MsgpackPeer : public TreePeer {
public:
    const char* Name() const noexcept override { return "msgpack"; }
    void Load(const zuv::TValue& tree) override {
        msgpack::sbuffer buffer;
        msgpack::packer packer(buffer);
        Pack(packer, tree);
        tree_ = msgpack::unpack(buffer.data(), buffer.size());
    }
    void Encode() override {
        buffer_ = msgpack::sbuffer();
        msgpack::pack(buffer_, tree_.get());
    }
    void Decode() override { decoded_ = msgpack::unpack(buffer_.data(), buffer_.size()); }
    std::size_t EncodedBytes() const noexcept override { return buffer_.size(); }
    void Clear() override { decoded_ = msgpack::object_handle(); }

private:
    msgpack::object_handle tree_;
    msgpack::object_handle decoded_;
    msgpack::sbuffer buffer_;
};

}  // namespace

std::unique_ptr<TreePeer> MakeMsgpackPeer() {
    return std::make_unique<MsgpackPeer>();
}

}  // namespace zam_bench
