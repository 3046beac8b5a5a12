#pragma once

#include <cstdint>
#include <string>

namespace zam_connector::test {

/// Most that one chunk holds.
inline constexpr std::uint64_t kChunkBytes = 65536;

/// More calls than this in one run of the service meet with all that the rules below do.
inline constexpr std::uint64_t kLastFaultyCall = 51;
inline constexpr std::uint64_t kDamagesOfARun = 3;

/// The service's faults.json: in each of its runs one connection breaks, and three chunks come
/// damaged. The last rule takes all calls that no other does and lets them take so much longer.
/// That every call meets with a rule has the service log each one that reaches it, at level 2.
inline std::string ChunkFaults(int delayMs) {
    return R"({"rules": [
        {"endpoint": "fileDownloader", "operation": "GetFileChunk", "calls": 30, "drop": true},
        {"endpoint": "fileDownloader", "operation": "GetFileChunk", "calls": 20,
         "damage": "chunk_data"},
        {"endpoint": "fileDownloader", "operation": "GetFileChunk", "calls": [50, 51],
         "damage": "chunk_data"},
        {"endpoint": "fileDownloader", "operation": "GetFileChunk", "when": "after",
         "delay_ms": )" +
           std::to_string(delayMs) + "}]}";
}

/// How often a text stands in another.
inline std::uint64_t CountOf(const std::string& text, const std::string& in) {
    std::uint64_t count = 0;
    for (auto at = in.find(text); at != std::string::npos; at = in.find(text, at + 1)) {
        ++count;
    }
    return count;
}

/// What the rules above did, as the service's log tells it.
struct ChunkCalls {
    explicit ChunkCalls(const std::string& log)
        : dropped(CountOf("GetFileChunk of fileDownloader meets with a fault before", log)),
          all(CountOf("GetFileChunk of fileDownloader meets with a fault after", log) + dropped) {}

    std::uint64_t dropped;  ///< with their connection
    std::uint64_t all;      ///< that reached the service
};

/// Changes a text of at least one chunk so that no two that follow each other are alike.
inline void FillNext(std::string& bytes, std::uint64_t& state) {
    for (std::size_t at = 0; at < bytes.size(); at += 7) {
        state = state * 6364136223846793005U + 1442695040888963407U;
        bytes[at] = static_cast<char>(state >> 56U);
    }
}

}  // namespace zam_connector::test
