#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <vector>

#include "zam_platform/channel.h"

namespace zam_platform {

struct LinkCall;

/// Farewells that could not be said and are remembered, to be said on the next connection. More are
/// dropped, oldest first: what they would have ended then ends with the session.
inline constexpr std::size_t kMaxUnsaidFarewells = 16;

/// Farewells that failed although a service may be there, oldest first. Not thread-safe. Nothing
/// but `Of` takes memory.
class UnsaidFarewells {
public:
    /// The farewell that this call was, to be said again. None when it has an arena or there is no
    /// memory for it.
    static UnsaidFarewells Of(const LinkCall& call) noexcept;

    bool IsEmpty() const noexcept { return farewells_.empty(); }

    /// Takes younger ones in.
    void Append(UnsaidFarewells younger) noexcept;

    /// Takes older ones in.
    void Prepend(UnsaidFarewells older) noexcept;

    /// Says the oldest one, which stays, by the call of this number. Throws `PlatformError`.
    void SayFirst(Channel& channel, std::uint64_t number, const Deadline& deadline);

    void DropFirst() noexcept { farewells_.pop_front(); }

private:
    struct Farewell {
        std::vector<std::uint64_t> request;  ///< the fixed part, 8-aligned
        std::uint32_t requestBytes = 0;
        std::vector<unsigned char> response;  ///< room for the answer, so that saying it takes none
    };

    void DropBeyondMost() noexcept;

    std::list<Farewell> farewells_;
};

}  // namespace zam_platform
