#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

#include "zuv/path.h"
#include "zuv/value.h"

namespace zuv {

namespace for_each {

/// What a visit asks of the walk, and what the walk came to.
enum class Option : std::uint8_t {
    Continue = 0,
    Remember = 1,  ///< go on; the walk gives 1 unless it is ended
    Stop = 2,      ///< end the walk at once
    Abort = 3,     ///< end the walk at once; told apart from `Stop` by the caller
};

namespace detail {

/// Where a walk stands among the children of one container.
struct Frame {
    explicit Frame(const Vector& vector) noexcept : elements(&vector) {}
    explicit Frame(const Map& map) noexcept : entry(map.begin()), end(map.end()) {}

    bool AtEnd() const noexcept {
        return elements != nullptr ? position == elements->size() : entry == end;
    }

    const Vector* elements = nullptr;  ///< of a vector; null for a map
    std::size_t position = 0;
    Map::const_iterator entry;
    Map::const_iterator end;
    Option remembered = Option::Continue;
};

/// Gives a path back the length it had, whichever way a walk ends.
class PathGuard {
public:
    explicit PathGuard(Path& path) noexcept : path_(path), levels_(path.size()) {}
    PathGuard(const PathGuard&) = delete;
    PathGuard& operator=(const PathGuard&) = delete;
    ~PathGuard() { path_.erase(path_.begin() + static_cast<std::ptrdiff_t>(levels_), path_.end()); }

private:
    Path& path_;
    std::size_t levels_;
};

}  // namespace detail
}  // namespace for_each

/// Walks `tree`, which stands at `path`, depth first and parents first: vector elements by rising
/// position, map entries by ascending key. `visit(const Path&, const TValue&)` is called for every
/// node and returns a `for_each::Option`.
///
/// A visit must return one of the four enumerators. `Stop` or `Abort` from any visit ends the walk
/// before that node's children and is the result. `Remember` skips nothing; once all of a
/// container's children have been walked, the container gives `Remember` if its own visit or the
/// walk of a child did. An empty container gives `Continue` whatever its own visit gave, unless
/// that ended the walk.
///
/// `path` grows and shrinks during the walk and is as before when it ends, by a throw too. The tree
/// must not change during the walk. Uses no recursion, so the depth of the tree is not limited by
/// the stack.
template <typename Visitor>
for_each::Option ForEach(const TValue& tree, Visitor&& visit, Path& path) {
    using for_each::Option;
    static_assert(
        std::is_same_v<Option,
                       std::decay_t<std::invoke_result_t<Visitor&, const Path&, const TValue&>>>,
        "the visitor returns zuv::for_each::Option");

    const for_each::detail::PathGuard guard(path);
    std::vector<for_each::detail::Frame> frames;
    const TValue* node = &tree;
    for (;;) {
        // Down: visit the node; a container with children opens a frame.
        Option result = visit(std::as_const(path), *node);
        if (result == Option::Stop || result == Option::Abort) {
            return result;
        }
        if (node->HasChildren()) {
            const auto* vector = node->GetIf<Vector>();
            if (vector != nullptr) {
                frames.emplace_back(*vector);
            } else {
                frames.emplace_back(*node->GetIf<Map>());
            }
            frames.back().remembered = result;
            path.emplace_back();
        } else {
            if (node->Is<Vector>() || node->Is<Map>()) {
                result = Option::Continue;
            }
            if (frames.empty()) {
                return result;
            }
            if (result != Option::Continue) {
                frames.back().remembered = result;
            }
        }
        // Up, over every container whose children have all been walked.
        while (frames.back().AtEnd()) {
            const Option remembered = frames.back().remembered;
            frames.pop_back();
            path.pop_back();
            if (frames.empty()) {
                return remembered;
            }
            if (remembered != Option::Continue) {
                frames.back().remembered = remembered;
            }
        }
        // Sideways, to the next child.
        for_each::detail::Frame& frame = frames.back();
        if (frame.elements != nullptr) {
            path.back() = static_cast<unsigned long>(frame.position);
            node = &(*frame.elements)[frame.position];
            ++frame.position;
        } else {
            path.back() = frame.entry->first;
            node = &frame.entry->second;
            ++frame.entry;
        }
    }
}

}  // namespace zuv
