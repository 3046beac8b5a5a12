#include <fmt/format.h>

#include "common/id_specification.h"
#include "common/raw_zam_param.h"
#include "qel/result_code.h"
#include "value_block.h"
#include "zuv/error.h"
#include "zuv/for_each.h"
#include "zuv/path_codec.h"

namespace zam_connector::common {
namespace {

/// Walks a tree as `zuv::ForEach` does, keeping the path as text: each node costs one level of it,
/// not the whole path. Uses no recursion.
class Flattener {
public:
    explicit Flattener(std::vector<RawZamParam>& out)
        : codec_(meta::IdSpecification()), out_(out) {}

    void Run(const zuv::Path& root, const zuv::TValue& tree) {
        zuv::IdState state = codec_.State();
        for (const zuv::Level& level : root) {
            if (state == zuv::IdState::Ok) {
                state = codec_.Append(text_, level);
            }
        }
        AppendRecord(tree, state);
        Open(tree);
        while (!frames_.empty()) {
            Frame& frame = frames_.back();
            text_.Truncate(frame.textBytes);
            if (frame.children.AtEnd()) {
                frames_.pop_back();
                continue;
            }
            const zuv::TValue& child = frame.children.Next(
                [&](unsigned long position) { state = codec_.Append(text_, position); },
                [&](const std::string& key) {
                    state = codec_.Append(text_, std::string_view(key));
                });
            AppendRecord(child, state);
            Open(child);
        }
    }

private:
    struct Frame {
        std::size_t textBytes;  ///< of the container's own path
        zuv::for_each::detail::ChildCursor children;
    };

    /// What is wrong with the value comes before what is wrong with the path.
    void AppendRecord(const zuv::TValue& value, zuv::IdState state) {
        std::vector<unsigned char> block = EncodeValue(value);
        if (state != zuv::IdState::Ok) {
            throw zuv::Error(qel::kInvalidArgument,
                             fmt::format("[RawZamParams] Path to str fail: state = {}",
                                         static_cast<unsigned>(state)));
        }
        out_.push_back(RawZamParam{std::move(block), std::string(text_.View())});
    }

    void Open(const zuv::TValue& value) {
        if (value.HasChildren()) {
            frames_.push_back({text_.Size(), zuv::for_each::detail::ChildCursor(value)});
        }
    }

    zuv::PathCodec codec_;
    std::vector<RawZamParam>& out_;
    zuv::PathText text_;
    std::vector<Frame> frames_;
};

}  // namespace

template <>
std::pair<int, std::string> Serialize<zuv::Path>(const zuv::Path& root, const zuv::TValue& tree,
                                                 std::vector<RawZamParam>& out) {
    const std::size_t before = out.size();
    try {
        Flattener(out).Run(root, tree);
        return {zuv::ResultOk, {}};
    } catch (...) {
        out.resize(before);
        return zuv::ProcessException();
    }
}

}  // namespace zam_connector::common
