#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/raw_zam_param.h"
#include "data/folder_files.h"

/// The files of `uploads/`, in which stands what clients sent. Every function blocks.

namespace zam_service {

/// What a client can send. The first three are trees.
enum class UploadKind : std::uint8_t { Settings, Eulas, Updates, AppInfo, AppInfoDynamic };
inline constexpr std::size_t kUploadKinds = 5;

/// "settings"; of static storage.
std::string_view NameOf(UploadKind kind) noexcept;

/// "settings.json".
std::string FileOf(UploadKind kind);

/// Spaces per level in the files, which are for people to read.
inline constexpr unsigned kUploadIndent = 2;

/// What became of an upload.
struct UploadOutcome {
    int code = 0;            ///< 0, or the result code; then the upload before stands
    std::uint64_t hash = 0;  ///< of a tree that was stored
    std::string error;       ///< what is wrong; empty when nothing is
};

/// Rebuilds the tree of a list, a none tree of an empty one, and stores it: on the disk when it
/// returns, and whole or not at all. "Invalid argument" for a list that makes no tree and for a
/// tree that cannot be written, "Media error" for what the disk refuses. Throws
/// `std::bad_alloc` and nothing else; then the upload before stands.
UploadOutcome StoreTree(const FolderFiles& files, UploadKind kind,
                        std::vector<zam_connector::common::RawZamParam> records);

/// Stores a text in the same way.
UploadOutcome StoreText(const FolderFiles& files, UploadKind kind, std::string_view text);

/// The hash of a stored tree, read back; `kAbsentHash` when there is none. What cannot be read is
/// logged and counts as none. Never throws.
std::uint64_t StoredHash(const FolderFiles& files, UploadKind kind) noexcept;

/// Removes what a service that was killed left half written. Failures are logged. Never throws.
void RemoveUnfinished(const FolderFiles& files) noexcept;

}  // namespace zam_service
