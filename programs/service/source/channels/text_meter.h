#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace zam_service {

/// Counts the bytes that a tree takes in its upload's file, at most, while its nodes come one by
/// one, parents before children. JSON has no control characters, and no texts and keys that are no
/// UTF-8: what stands for them takes up to six times their bytes, and a single such key turns its
/// whole map into pairs. One thread at a time.
class TextMeter {
public:
    /// Counts the root. `block` is the value as its record has it.
    void AddRoot(const std::vector<unsigned char>& block);

    /// Counts an entry of a map, or an element of a vector, at a depth (1: right below the root);
    /// its parent is the node one level above that came last.
    void AddEntry(std::size_t depth, std::string_view key, const std::vector<unsigned char>& block);
    void AddElement(std::size_t depth, const std::vector<unsigned char>& block);

    /// Tells of none values in front of an element. Their lines are counted by who counts the gaps,
    /// but for the indentation that pairs above them add.
    void AddGap(std::size_t depth, std::size_t values);

    /// Bytes of all nodes counted so far, the line's end behind the tree included.
    std::size_t Bytes() const noexcept { return bytes_; }

private:
    struct Level {
        std::size_t children = 0;
        std::size_t lines = 0;   ///< below this node, those that pairs would indent further
        std::size_t indent = 0;  ///< of the lines of its children
        bool isPairs = false;
    };

    /// Forgets the levels from `depth` on, which are whole.
    void Return(std::size_t depth);
    void AddLines(std::size_t lines, std::size_t bytes);
    void AddNode(const std::vector<unsigned char>& block);
    void TurnIntoPairs(Level& map);
    void AddPair(const Level& map);

    std::vector<Level> levels_;  ///< the way to the node that came last
    std::size_t bytes_ = 1;
};

}  // namespace zam_service
