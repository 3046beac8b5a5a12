#pragma once

#include <string.h>

#include <cstddef>
#include <optional>
#include <string>

namespace zam_service {

/// Overwrites what was secret, so that neither a core dump nor whoever gets the memory next finds
/// it. Thread-safe as the arguments are.
inline void Wipe(void* bytes, std::size_t size) noexcept {
    if (size != 0) {
        ::explicit_bzero(bytes, size);
    }
}

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
