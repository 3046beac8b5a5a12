#include "channels/rebuild_meter.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "common/id_specification.h"
#include "data/upload_file.h"
#include "zuv/value.h"

namespace zam_service {

using zam_connector::common::RawZamParam;

namespace {

/// What a heap takes for a stretch of its own besides the stretch's bytes, about.
constexpr std::size_t kHeapOverhead = 16;

/// A record stands in a vector and has two stretches.
constexpr std::size_t kRecordBytes = sizeof(RawZamParam) + 2 * kHeapOverhead;

/// A node of a tree as the entry of a map, which takes more than an element of a vector does, the
/// vector's room to grow included: key and value, the links of the map, and stretches of the heap
/// for the entry, the key and the value.
constexpr std::size_t kTreeNodeBytes =
    sizeof(zuv::Map::value_type) + 4 * sizeof(void*) + 3 * kHeapOverhead;
static_assert(kTreeNodeBytes >= 2 * sizeof(zuv::TValue));

/// The line of a none value in a file, but for its indentation: "null", a comma, the line's end.
constexpr std::size_t kNoneLineBytes = 6;

char Separator() {
    return zam_connector::common::meta::IdSpecification().chars.front();
}

/// Levels of a path whose levels are sound.
std::size_t LevelsOf(std::string_view path) {
    const auto separators = std::count(path.begin(), path.end(), Separator());
    const bool hasOpenEnd = !path.empty() && path.back() != Separator();
    return static_cast<std::size_t>(separators) + (hasOpenEnd ? 1 : 0);
}

/// Where the last level of a path begins.
std::size_t LastLevelOf(std::string_view path) {
    const std::size_t end = path.find_last_not_of(Separator());
    const std::size_t before = path.substr(0, end).rfind(Separator());
    return before == std::string_view::npos ? 0 : before + 1;
}

/// The first levels of a path.
std::string_view HeadOf(std::string_view path, std::size_t levels) {
    std::size_t end = 0;
    for (; levels != 0 && end != path.size(); --levels) {
        end = std::min(path.find(Separator(), end), path.size() - 1) + 1;
    }
    return path.substr(0, end);
}

/// Elements that the record's value says it has; 0 for all but vectors.
std::uint64_t AnnouncedBy(const RawZamParam& record) noexcept {
    std::array<std::uint64_t, 2> words{};
    if (record.value.size() < sizeof(words)) {
        return 0;
    }
    std::memcpy(words.data(), record.value.data(), sizeof(words));
    return words[0] == static_cast<std::uint64_t>(zuv::Kind::Vector) ? words[1] : 0;
}

}  // namespace

std::size_t GapValueBytes(std::size_t depth) noexcept {
    // A vector that grows behind its gap holds the gap twice for a while.
    return 2 * sizeof(zuv::TValue) + kNoneLineBytes + kUploadIndent * depth;
}

std::size_t NodeBytes(const RawZamParam& record) noexcept {
    // Bytes of a value and a key stand in the record and once more in the node.
    return kRecordBytes + kTreeNodeBytes + 2 * zam_connector::common::WeightOf(record);
}

RebuildMeter::RebuildMeter() : codec_(zam_connector::common::meta::IdSpecification()) {}

std::size_t RebuildMeter::Add(const RawZamParam& record) {
    std::size_t added = kTreeNodeBytes + zam_connector::common::WeightOf(record);
    if (way_.empty()) {
        rootLevels_ = LevelsOf(record.path);
        way_.push_back({.announced = AnnouncedBy(record)});
        text_.AddRoot(record.value);
    } else if (isTree_) {
        const std::size_t gap = GapBefore(record);
        added = SaturatedSum(added, SaturatedProduct(gap, GapValueBytes(way_.size() - 1)));
    }
    last_ = record.path;
    recordBytes_ += kRecordBytes + zam_connector::common::WeightOf(record);
    // Records go before the text is written, so that there is never more than the larger.
    const std::size_t beside = std::max(recordBytes_, text_.Bytes());
    return SaturatedSum(added, beside - std::exchange(beside_, beside));
}

std::string RebuildMeter::Missing() {
    LeaveFrom(0);
    return missing_;
}

/// The nodes of the way from this depth on get no more elements.
void RebuildMeter::LeaveFrom(std::size_t depth) {
    for (std::size_t at = depth; at < way_.size() && missing_.empty(); ++at) {
        if (way_[at].elements < way_[at].announced) {
            missing_ =
                fmt::format("the vector at '{}' has {} elements of the {} announced",
                            HeadOf(last_, rootLevels_ + at), way_[at].elements, way_[at].announced);
        }
    }
    way_.resize(std::min(way_.size(), depth));
}

/// The node's parent is told by the depth alone, as in the rebuild: it is the node placed last one
/// level above.
std::size_t RebuildMeter::GapBefore(const RawZamParam& record) {
    const std::size_t levels = LevelsOf(record.path);
    zuv::PathCodec::LevelText last;
    if (levels <= rootLevels_ || levels - rootLevels_ > way_.size() ||
        codec_.Read(record.path, LastLevelOf(record.path), last) != zuv::IdState::Ok) {
        isTree_ = false;
        return 0;
    }
    const std::size_t depth = levels - rootLevels_;
    LeaveFrom(depth);
    std::size_t& ofParent = way_.back().elements;
    std::size_t gap = 0;
    if (last.isPosition) {
        isTree_ = last.position >= ofParent && last.position != kUncountable;
        gap = last.position >= ofParent ? last.position - ofParent : 0;
        ofParent = last.position + 1;
        text_.AddGap(depth, gap);
        text_.AddElement(depth, record.value);
    } else {
        text_.AddEntry(depth, last.key, record.value);
    }
    way_.push_back({.announced = AnnouncedBy(record)});
    return gap;
}

}  // namespace zam_service
