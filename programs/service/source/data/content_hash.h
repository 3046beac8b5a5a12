#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "zuv/value.h"

/// Hashes of what is served and stored: equal content has equal hashes, in every run and version of
/// the service, and other content has others but for chance.

namespace zam_service {

/// Stands for content that is not there; no content has it.
inline constexpr std::uint64_t kAbsentHash = 0;

/// A 64-bit hash of what was added, in the order in which it was. One thread at a time.
class ContentHash {
public:
    /// Throws `std::bad_alloc`.
    ContentHash();

    /// The length is hashed too, so that stretches do not run into each other.
    void AddBytes(std::string_view bytes) noexcept;
    void AddNumber(std::uint64_t number) noexcept;

    /// Never `kAbsentHash`.
    std::uint64_t Value() const noexcept;

private:
    struct Free {
        void operator()(void* state) const noexcept;
    };

    std::unique_ptr<void, Free> state_;
};

/// The hash of a tree: of kind, content and place of every node, in the order in which the tree is
/// flattened. Identical trees (`TValue::IsIdenticalTo`) have equal hashes. Throws for want of
/// memory.
std::uint64_t HashOf(const zuv::TValue& tree);

}  // namespace zam_service
