#include "bare_upload.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string_view>

#include "common/arena.h"
#include "common/raw_zam_param_casts.h"
#include "data/content_hash.h"
#include "data/upload_file.h"
#include "param_list.h"
#include "qx/product_data_holder.h"
#include "tree_json/tree_json.h"
#include "zam_platform/unique_fd.h"

namespace zam_bench {
namespace {

/// From a tree to the bytes of every piece.
void Encode(const zuv::TValue& tree, zam_connector::common::HeapArena& arena) {
    const ParamList list = Flatten(tree);
    for (const auto piece : Cut(list)) {
        vd_arena_reset(arena.Get());
        zam_connector::common::CastToVd(piece, arena.Get());
    }
}

void WriteDurably(const std::string& path, std::string_view text) {
    const std::string unfinished = path + ".new";
    const zam_platform::UniqueFd file(
        ::open(unfinished.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    std::size_t written = 0;
    while (file && written < text.size()) {
        const ssize_t now = ::write(file.Get(), text.data() + written, text.size() - written);
        if (now <= 0) {
            break;
        }
        written += static_cast<std::size_t>(now);
    }
    if (written != text.size() || ::fsync(file.Get()) != 0 ||
        std::rename(unfinished.c_str(), path.c_str()) != 0) {
        throw std::runtime_error("cannot write " + path);
    }
}

void Store(const ParamList& list, const std::string& path) {
    const zuv::TValue tree = Rebuild(list);
    if (zam_service::HashOf(tree) == zam_service::kAbsentHash) {
        throw std::runtime_error("a tree without a hash");
    }
    WriteDurably(path,
                 zam_connector::tree_json::Write(tree, {.indent = zam_service::kUploadIndent}));
}

}  // namespace

BareUploadServer::BareUploadServer(const zuv::TValue& tree)
    : tree_(tree),
      list_(Flatten(tree)),
      exchanges_(PushExchanges(list_)),
      sockets_(MakeSocketPair()),
      child_([this] {
          sockets_.client.Reset();
          const std::string path = folder_.Path("settings.json");
          ServeExchanges(sockets_.server.Get(), exchanges_, [this, &path] { Store(list_, path); });
      }) {
    sockets_.server.Reset();
}

std::function<void()> BareUploadServer::Client() const {
    const auto arena = std::make_shared<zam_connector::common::HeapArena>(
        qx_zam_connector_ProductDataHolder_SendData_request_arena);
    const auto client = std::make_shared<ExchangeClient>(exchanges_);
    return [this, arena, client] {
        Encode(tree_, *arena);
        client->Run(sockets_.client.Get());
    };
}

}  // namespace zam_bench
