#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "zam_platform/wipe.h"

namespace zam_service {

using zam_platform::Wipe;

inline void Wipe(std::optional<std::string>& text) noexcept {
    if (text) {
        std::string& secret = *text;
        const std::size_t size = secret.size();
        Wipe(secret.data(), size);
    }
}

/// Wipes a text at the end of the scope, also when that is left by an exception.
class WipedAtEnd {
public:
    explicit WipedAtEnd(std::optional<std::string>& text) noexcept : text_(text) {}
    WipedAtEnd(const WipedAtEnd&) = delete;
    WipedAtEnd& operator=(const WipedAtEnd&) = delete;
    ~WipedAtEnd() { Wipe(text_); }

private:
    std::optional<std::string>& text_;
};

}  // namespace zam_service
