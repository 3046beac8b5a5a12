#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
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
class ChildCursor {
public:
    /// `container` is a vector or a map and must outlive the cursor, unchanged.
    explicit ChildCursor(const TValue& container) noexcept
        : elements_(container.GetIf<Vector>()),
          entries_(elements_ == nullptr ? container.GetIf<Map>() : nullptr) {
        if (entries_ != nullptr) {
            entry_ = entries_->begin();
        }
    }

    bool AtEnd() const noexcept {
        return elements_ != nullptr ? position_ == elements_->size() : entry_ == entries_->end();
    }

    /// The next child, with its place: `atPosition(position)` or `atKey(key)` is called with it.
    /// There must be one.
    template <typename AtPosition, typename AtKey>
    const TValue& Next(const AtPosition& atPosition, const AtKey& atKey) {
        if (elements_ != nullptr) {
            atPosition(static_cast<unsigned long>(position_));
            return (*elements_)[position_++];
        }
        atKey(entry_->first);
        return (entry_++)->second;
    }

private:
    const Vector* elements_;  ///< of a vector; null for a map
    std::size_t position_ = 0;
    const Map* entries_;
    Map::const_iterator entry_;
};

/// A container on the way from the root to the node that is being visited.
struct Frame {
    ChildCursor children;
    Option remembered;
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
            frames.push_back({for_each::detail::ChildCursor(*node), result});
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
        while (frames.back().children.AtEnd()) {
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
        node = &frames.back().children.Next(
            [&path](unsigned long position) { path.back() = position; },
            [&path](const std::string& key) { path.back() = key; });
    }
}

}  // namespace zuv
