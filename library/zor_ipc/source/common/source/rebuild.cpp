#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "common/id_specification.h"
#include "common/raw_zam_param.h"
#include "common/raw_zam_pieces.h"
#include "piece_reader.h"
#include "qel/result_code.h"
#include "value_block.h"
#include "zuv/error.h"
#include "zuv/path_codec.h"

namespace zam_connector::common {
namespace {

static_assert(std::endian::native == std::endian::little, "words are compared byte by byte");

constexpr int kEmptyList = qel::FromBits(0x80000101U);
constexpr int kNonRootedPath = qel::FromBits(0x80000064U);
constexpr int kLevelJump = qel::FromBits(0x80000065U);

std::size_t CommonBytes(std::string_view left, std::string_view right) noexcept {
    const std::size_t limit = std::min(left.size(), right.size());
    std::size_t at = 0;
    for (; at + sizeof(std::uint64_t) <= limit; at += sizeof(std::uint64_t)) {
        std::uint64_t leftWord = 0;
        std::uint64_t rightWord = 0;
        std::memcpy(&leftWord, left.data() + at, sizeof leftWord);
        std::memcpy(&rightWord, right.data() + at, sizeof rightWord);
        if (leftWord != rightWord) {
            return at + static_cast<std::size_t>(__builtin_ctzll(leftWord ^ rightWord)) / 8;
        }
    }
    while (at < limit && left[at] == right[at]) {
        ++at;
    }
    return at;
}

/// Reads the paths of a list one after another. Neighbours share most of their levels, so each path
/// is compared with the text before it and only its new end is parsed; the result is that of
/// parsing every path as a whole.
class PathReader {
public:
    PathReader() : codec_(meta::IdSpecification()) {}

    /// The first path, which becomes the root of all others: `root` must outlive this object. It is
    /// moved there and nowhere copied: with g++ 12 a copy of levels that lacks memory leaves a
    /// variant that its destructor cannot know.
    void ReadRoot(std::string_view text, zuv::Path& root) {
        auto read = zuv::FromString(text, meta::IdSpecification());
        Check(text, read.second);
        Parse(text);
        rootText_ = text;
        root = std::move(read.first);
        root_ = &root;
    }

    /// Reads the next path and checks where it stands: inside the root, at most one level below the
    /// path before. `text` must stay until the next call.
    void Read(std::string_view text) {
        const std::size_t levelsBefore = ends_.size();
        const std::string_view textBefore = text_;
        const bool isRooted = Parse(text);
        if (!isRooted || ends_.size() <= root_->size()) {
            throw zuv::Error(kNonRootedPath,
                             fmt::format("[RawZamParams] non-rooted path: root = '{}', this = '{}'",
                                         rootText_, text));
        }
        if (ends_.size() > levelsBefore + 1) {
            throw zuv::Error(kLevelJump,
                             fmt::format("[RawZamParams] path level jump: prev = '{}', this = '{}'",
                                         textBefore, text));
        }
    }

    /// Levels of the path read last, the root's not counted.
    std::size_t Depth() const noexcept { return ends_.size() - root_->size(); }

    /// The last level of the path read last.
    const zuv::PathCodec::LevelText& LastLevel() const noexcept { return last_; }

private:
    /// Returns false when a level differs from the root's.
    bool Parse(std::string_view text) {
        const std::size_t common = CommonBytes(text, text_);
        // Levels whose text and separator are those of the path before; not all of them if nothing
        // follows, because the last level is wanted.
        while (!ends_.empty() && (ends_.back() > common || ends_.back() >= text.size())) {
            ends_.pop_back();
        }
        bool isRooted = true;
        for (std::size_t offset = ends_.empty() ? 0 : ends_.back(); offset < text.size();) {
            Check(text, codec_.Read(text, offset, last_));
            isRooted = isRooted && MatchesRoot(ends_.size());
            ends_.push_back(last_.next);
            offset = last_.next;
        }
        text_ = text;
        return isRooted;
    }

    /// Whether the level read last may stand at `index`.
    bool MatchesRoot(std::size_t index) const {
        if (index >= root_->size()) {
            return true;
        }
        if (const auto* position = std::get_if<unsigned long>(&(*root_)[index])) {
            return last_.isPosition && last_.position == *position;
        }
        return !last_.isPosition && last_.key == *std::get_if<std::string>(&(*root_)[index]);
    }

    static void Check(std::string_view text, zuv::IdState state) {
        if (state != zuv::IdState::Ok) {
            throw zuv::Error(qel::kInvalidArgument,
                             fmt::format("[RawZamParams] Str to path fail: src = '{}', state = {}",
                                         text, static_cast<unsigned>(state)));
        }
    }

    zuv::PathCodec codec_;
    std::string_view text_;          ///< of the path read last
    std::vector<std::size_t> ends_;  ///< where each of its levels ends, behind the separator
    zuv::PathCodec::LevelText last_;
    std::string_view rootText_;
    const zuv::Path* root_ = &zuv::Root;  ///< not owned
};

/// Puts values into a tree, each one level below a node on the way to the value before.
class TreeBuilder {
public:
    explicit TreeBuilder(zuv::TValue& tree) : nodes_{&tree} {}

    /// `depth` is at least 1 and at most one more than that of the value before.
    void Place(std::size_t depth, const zuv::PathCodec::LevelText& level, zuv::TValue&& value) {
        nodes_.resize(depth);
        zuv::TValue& parent = *nodes_.back();
        zuv::TValue* node = level.isPosition ? PlaceAt(parent, level.position, std::move(value))
                                             : PlaceAt(parent, level.key, std::move(value));
        nodes_.push_back(node);
    }

private:
    zuv::TValue* PlaceAt(zuv::TValue& parent, unsigned long position, zuv::TValue&& value) {
        auto* vector = parent.GetIf<zuv::Vector>();
        if (vector == nullptr) {
            throw zuv::WrongItem;
        }
        if (position < vector->size()) {
            throw zuv::ItemAlreadyExists;
        }
        const std::size_t gap = position - vector->size();
        if (gap > fillable_) {
            throw std::length_error(
                fmt::format("position {} leaves a gap of {} values behind position {}, at most {} "
                            "more are filled in this list (limit {})",
                            position, gap, vector->size(), fillable_, kMaxFilledElements));
        }
        if (gap == 0) {
            return &vector->emplace_back(std::move(value));
        }
        fillable_ -= gap;
        vector->resize(position + 1);
        vector->back() = std::move(value);
        return &vector->back();
    }

    static zuv::TValue* PlaceAt(zuv::TValue& parent, std::string_view key, zuv::TValue&& value) {
        auto* map = parent.GetIf<zuv::Map>();
        if (map == nullptr) {
            throw zuv::WrongItem;
        }
        const std::size_t before = map->size();
        // The end is where the keys of a flattened tree come in.
        const auto entry = map->emplace_hint(map->end(), key, std::move(value));
        if (map->size() == before) {
            throw zuv::ItemAlreadyExists;
        }
        return &entry->second;
    }

    /// The way to the value placed last: entry 0 is the tree. An entry stays valid while it is
    /// here: its parent grows only when a value takes its place on the way.
    std::vector<zuv::TValue*> nodes_;
    std::size_t fillable_ = kMaxFilledElements;
};

/// The records of a list, one after another.
class ListSource {
public:
    explicit ListSource(const std::vector<RawZamParam>& list) : list_(list) {}

    std::size_t Count() const noexcept { return list_.size(); }

    PieceRecord Next() {
        const RawZamParam& record = list_[next_++];
        const auto* const value = reinterpret_cast<const char*>(record.value.data());
        return {.block = {.tag = kVerbatimTag, .bytes = {value, record.value.size()}},
                .path = record.path};
    }

private:
    const std::vector<RawZamParam>& list_;
    std::size_t next_ = 0;
};

/// The records of pieces, one after another.
class PieceSource {
public:
    explicit PieceSource(const RawZamPieces& pieces) : pieces_(pieces) {}

    std::size_t Count() const noexcept { return pieces_.Count(); }

    PieceRecord Next() {
        while (reader_.AtEnd()) {
            reader_ = PieceReader(pieces_.Pieces()[next_++]);
            reader_.ReadVersion();
        }
        return reader_.ReadRecord();
    }

private:
    const RawZamPieces& pieces_;
    std::size_t next_ = 0;
    PieceReader reader_{{}};
};

template <typename Source>
std::pair<zuv::Path, zuv::TValue> Rebuild(Source source) {
    // All elements of all vectors are records of this list, so no more room is ever of use.
    std::size_t reservable = source.Count() - 1;
    std::pair<zuv::Path, zuv::TValue> result;
    PathReader reader;
    const PieceRecord first = source.Next();
    result.second = DecodeValue(first.block, reservable);
    reader.ReadRoot(first.path, result.first);
    TreeBuilder builder(result.second);
    for (std::size_t index = 1; index < source.Count(); ++index) {
        const PieceRecord record = source.Next();
        zuv::TValue value = DecodeValue(record.block, reservable);
        reader.Read(record.path);
        builder.Place(reader.Depth(), reader.LastLevel(), std::move(value));
    }
    return result;
}

template <typename Source>
std::pair<int, std::string> DeserializeFrom(const Source& source, zuv::Path& root,
                                            zuv::TValue& tree) {
    if (source.Count() == 0) {
        return {kEmptyList, "[RawZamParams] empty raw setting"};
    }
    try {
        auto [rebuiltRoot, rebuiltTree] = Rebuild(source);
        root = std::move(rebuiltRoot);
        tree = std::move(rebuiltTree);
        return {zuv::ResultOk, {}};
    } catch (...) {
        return zuv::ProcessException();
    }
}

}  // namespace

std::pair<int, std::string> Deserialize(const std::vector<RawZamParam>& list, zuv::Path& root,
                                        zuv::TValue& tree) {
    return DeserializeFrom(ListSource(list), root, tree);
}

std::pair<int, std::string> Deserialize(const RawZamPieces& pieces, zuv::Path& root,
                                        zuv::TValue& tree) {
    return DeserializeFrom(PieceSource(pieces), root, tree);
}

}  // namespace zam_connector::common
