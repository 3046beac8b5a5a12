#include "data/upload_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <exception>
#include <new>
#include <utility>

#include "common/log.h"
#include "data/content_hash.h"
#include "data/file_io.h"
#include "data/history_file.h"
#include "result_codes.h"
#include "tree_json/tree_json.h"
#include "zam_platform/posix_error.h"
#include "zuv/path.h"

namespace zam_service {

using zam_connector::common::RawZamParam;
using zam_platform::UniqueFd;

namespace {

using zam_connector::common::Here;
using zam_connector::common::Log;

constexpr char kSourceFile[] = "upload_file";

constexpr auto kNames = std::to_array<std::string_view>(
    {"settings", "eulas", "updates", "app_info", "app_info_dynamic"});

/// Largest stored tree that is read back at the start, in bytes.
constexpr std::size_t kMaxStoredBytes = std::size_t{4} << 30U;

std::string Shown(const FolderFiles& files, const std::string& name) {
    return fmt::format("'{}/{}/{}'", files.Path(), kUploadsFolder, name);
}

/// The folder of the uploads; empty when there is none.
UniqueFd OpenUploads(const FolderFiles& files) {
    const FolderFiles::Directory data = files.Open();
    return OpenBeneath(data->Get(), kUploadsFolder, O_RDONLY | O_DIRECTORY,
                       fmt::format("'{}/{}'", files.Path(), kUploadsFolder));
}

zuv::TValue Rebuild(const std::vector<RawZamParam>& records, UploadOutcome& outcome) {
    zuv::TValue tree;
    if (!records.empty()) {
        zuv::Path root;
        const auto [code, message] = zam_connector::common::Deserialize(records, root, tree);
        if (code == qel::kUnspecifiedError) {
            throw std::bad_alloc();  // of records that have passed the checks nothing else comes
        }
        if (code != 0) {
            outcome = {.code = kInvalidArgument, .hash = kAbsentHash, .error = message};
        }
    }
    return tree;
}

void Store(const FolderFiles& files, UploadKind kind, std::string_view text) {
    const UniqueFd folder = files.OpenFolder(kUploadsFolder);
    ReplaceFile(folder.Get(), FileOf(kind), text, Shown(files, FileOf(kind)));
}

}  // namespace

std::string_view NameOf(UploadKind kind) noexcept {
    return kNames.at(static_cast<std::size_t>(kind));
}

std::string FileOf(UploadKind kind) {
    return std::string(NameOf(kind)) + ".json";
}

UploadOutcome StoreTree(const FolderFiles& files, UploadKind kind,
                        std::vector<RawZamParam> records) {
    UploadOutcome outcome;
    try {
        std::string text;
        {
            const zuv::TValue tree = Rebuild(records, outcome);
            // Records take several times what they hold, and the text comes on top.
            records = std::vector<RawZamParam>();
            if (outcome.code != kNoError) {
                return outcome;
            }
            outcome.hash = HashOf(tree);
            text = zam_connector::tree_json::Write(tree, {.indent = kUploadIndent});
        }
        text += '\n';
        Store(files, kind, text);
        return outcome;
    } catch (const zam_connector::tree_json::JsonError& error) {
        return {.code = kInvalidArgument, .hash = kAbsentHash, .error = error.what()};
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        return {.code = kMediaError, .hash = kAbsentHash, .error = error.what()};
    }
}

UploadOutcome StoreText(const FolderFiles& files, UploadKind kind, std::string_view text) {
    try {
        Store(files, kind, text);
        return {};
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        return {.code = kMediaError, .hash = kAbsentHash, .error = error.what()};
    }
}

std::uint64_t StoredHash(const FolderFiles& files, UploadKind kind) noexcept {
    try {
        const std::string name = FileOf(kind);
        const std::string shown = Shown(files, name);
        const UniqueFd folder = OpenUploads(files);
        const UniqueFd file =
            folder ? OpenBeneath(folder.Get(), name, O_RDONLY, shown) : UniqueFd();
        if (!file) {
            return kAbsentHash;
        }
        CheckRegular(file.Get(), shown);
        return HashOf(
            zam_connector::tree_json::Read(ReadWhole(file.Get(), kMaxStoredBytes, shown), shown));
    } catch (const std::exception& error) {
        Log(zor::logger::kLevelError, Here(kSourceFile, "StoredHash"), "{}: counts as none",
            error.what());
        return kAbsentHash;
    }
}

void RemoveUnfinished(const FolderFiles& files) noexcept {
    try {
        const UniqueFd folder = OpenUploads(files);
        if (!folder) {
            return;
        }
        for (const std::string_view name : kNames) {
            const std::string unfinished = UnfinishedName(std::string(name) + ".json");
            if (::unlinkat(folder.Get(), unfinished.c_str(), 0) == 0) {
                Log(zor::logger::kLevelInformation, Here(kSourceFile, "RemoveUnfinished"),
                    "{}: removed, it was never finished", Shown(files, unfinished));
            } else if (errno != ENOENT) {
                throw zam_platform::PosixError(Shown(files, unfinished), errno);
            }
        }
    } catch (const std::exception& error) {
        Log(zor::logger::kLevelError, Here(kSourceFile, "RemoveUnfinished"), "{}", error.what());
    }
}

}  // namespace zam_service
