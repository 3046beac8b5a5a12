#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zam_service {

/// What is wrong with a piece of a tree or a chunk of a file that a client fetches.
enum class PieceDamage : std::uint8_t {
    RecordValue,   ///< the first record's value block is cut by one byte
    Length,        ///< the first record announces more bytes than the piece has
    RepeatPath,    ///< the last record comes twice
    VectorGap,     ///< the first element of a vector that another one follows is missing
    Endless,       ///< the last piece is not marked as the last
    ChunkData,     ///< a bit of the chunk's data is another, and the CRC is as before
    ChunkVersion,  ///< the chunk tells of another version of the file
};

/// The names of all, as the faults file has them, in the order of the enumerators.
inline constexpr std::string_view kPieceDamageNames[] = {"record_value", "length",  "repeat_path",
                                                         "vector_gap",   "endless", "chunk_data",
                                                         "chunk_version"};

/// By name; empty when there is none.
std::optional<PieceDamage> FindPieceDamage(std::string_view name) noexcept;

/// The operation whose answers a damage is for.
struct DamagedOperation {
    std::string_view interface;
    std::string_view operation;
};
DamagedOperation OperationOf(PieceDamage damage) noexcept;

/// Damages an answer of `OperationOf(damage)`: its message and its arena. False when there is
/// nothing in it that could be damaged so. Throws for want of memory.
bool DamagePiece(PieceDamage damage, std::vector<unsigned char>& message,
                 std::vector<unsigned char>& arena);

}  // namespace zam_service
