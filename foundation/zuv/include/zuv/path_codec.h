#pragma once

#include <array>
#include <cstddef>
#include <string_view>
#include <vector>

#include "qel/export.h"
#include "zuv/path.h"

namespace zuv {

/// A path's text that grows and shrinks at its end. Grows by doubling; shrinking keeps the memory.
class PathText {
public:
    std::size_t Size() const noexcept { return size_; }
    std::string_view View() const noexcept { return {buffer_.data(), size_}; }

    /// `size` is at most `Size()`.
    void Truncate(std::size_t size) noexcept { size_ = size; }

    /// Room for `bytes` more behind the text; what is put there joins the text with `Extend`. Valid
    /// until the next call.
    char* Room(std::size_t bytes) {
        if (bytes > buffer_.size() - size_) {
            Grow(bytes);
        }
        return buffer_.data() + size_;
    }
    void Extend(std::size_t bytes) noexcept { size_ += bytes; }

private:
    void Grow(std::size_t bytes) { buffer_.resize(2 * (buffer_.size() + bytes)); }

    std::vector<char> buffer_;
    std::size_t size_ = 0;
};

/// Writes and reads paths level by level, for code that keeps a text and changes its end.
/// `ToString` and `FromString` are made of it. Immutable, so safe to share between threads.
class ZAM_API PathCodec {
public:
    explicit PathCodec(const IdSpec& spec) noexcept;

    /// `NoCharacters` when the `IdSpec` has none; nothing else may be called then.
    IdState State() const noexcept { return hasCharacters_ ? IdState::Ok : IdState::NoCharacters; }

    /// Appends a level and the separator. On failure `text` is as before.
    IdState Append(PathText& text, unsigned long position) const;
    IdState Append(PathText& text, std::string_view key) const;
    IdState Append(PathText& text, const Level& level) const;

    /// A level of a text.
    struct LevelText {
        bool isPosition = false;
        unsigned long position = 0;  ///< of a position
        std::string_view key;        ///< of a key; lies in the text
        std::size_t next = 0;        ///< where the next level begins: behind the separator, or one
                                     ///< past the end of a text that has none behind this level
    };

    /// Reads the level that begins at `offset`. `EmptyLevel` when there is none.
    IdState Read(std::string_view text, std::size_t offset, LevelText& level) const noexcept;

private:
    bool IsReserved(char character) const noexcept {
        return reserved_[static_cast<unsigned char>(character)];
    }

    unsigned long maxIndex_;
    bool hasCharacters_;
    char separator_;
    std::array<bool, 256> reserved_{};
};

}  // namespace zuv
