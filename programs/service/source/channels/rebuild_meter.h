#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "channels/saturated.h"
#include "channels/text_meter.h"
#include "common/raw_zam_param.h"
#include "zuv/path_codec.h"

namespace zam_service {

/// Counts the memory that a list of records takes on its way to its upload's file: its tree, with
/// the none values that fill the gaps of vectors and their lines in the file, and beside that the
/// records or the file's text, whichever are more. A short list can rebuild to any amount, and its
/// text can be six times as long, so the count comes before anything is rebuilt. One thread at a
/// time.
class RebuildMeter {
public:
    RebuildMeter();

    /// Counts the next record; returns the bytes that it adds, the largest number when they are
    /// more than can be counted. Behind a record that no tree can have, gaps add nothing: the list
    /// is not rebuilt beyond it.
    std::size_t Add(const zam_connector::common::RawZamParam& record);

    /// When no more records come: which vector has fewer elements than its record announced, empty
    /// when none has. Maps announce nothing.
    std::string Missing();

private:
    /// A node on the way to the record before.
    struct Node {
        std::size_t elements = 0;  ///< those that have come, with their gaps
        std::uint64_t announced = 0;
    };

    /// None values that are put in front of the record.
    std::size_t GapBefore(const zam_connector::common::RawZamParam& record);
    void LeaveFrom(std::size_t depth);

    zuv::PathCodec codec_;
    bool isTree_ = true;
    std::size_t rootLevels_ = 0;
    /// Down to the record before, that one included; entry 0 is the root. Empty before the first
    /// record.
    std::vector<Node> way_;
    std::string last_;  ///< path of the record before
    std::string missing_;
    TextMeter text_;
    std::size_t recordBytes_ = 0;
    std::size_t beside_ = 0;  ///< the larger of records and text, as counted so far
};

/// What a none value in a gap takes at a depth of its path (1: right below the root), in bytes.
std::size_t GapValueBytes(std::size_t depth) noexcept;

/// What a record and its node take without any gap, in bytes, as long as records are more than
/// their text.
std::size_t NodeBytes(const zam_connector::common::RawZamParam& record) noexcept;

}  // namespace zam_service
