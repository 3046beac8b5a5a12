#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "checksums/sha256.h"

namespace zamctl {

/// Which content a part file is a part of.
struct ContentIdentity {
    std::string sha256;  ///< 64 lower-case hexadecimal digits
    std::uint64_t sizeBytes = 0;
};

inline bool operator==(const ContentIdentity& left, const ContentIdentity& right) {
    return left.sha256 == right.sha256 && left.sizeBytes == right.sizeBytes;
}

/// What has come of a file so far, in `TARGET.part`, and in `TARGET.part.json` of which content. It
/// outlives the process, however that ends; its length is how far it has got. One thread at a time,
/// and one process: another one that opens it is refused.
class PartFile {
public:
    /// Opens what an earlier run left, or begins anew when that is a part of another content.
    /// `target` is where the whole file will stand. Throws `Failure`.
    PartFile(std::string target, const ContentIdentity& identity);
    PartFile(const PartFile&) = delete;
    PartFile& operator=(const PartFile&) = delete;

    /// Leaves the part where it is.
    ~PartFile();

    /// Bytes that have come.
    std::uint64_t Size() const noexcept { return size_; }

    /// Adds what has come to a hash. Throws `Failure`.
    void AddTo(zam_checksums::Sha256& hash) const;

    /// Throws `Failure`.
    void Append(std::span<const std::byte> bytes);

    /// Brings everything to the disk and puts the file in its place. Throws `Failure`.
    void Commit();

    /// Removes the part: nothing of it is of use.
    void Discard() noexcept;

private:
    bool IsPartOf(const ContentIdentity& identity) const;
    void WriteIdentity(const ContentIdentity& identity) const;
    void OpenLocked();
    void Close() noexcept;
    void Open(const ContentIdentity& identity);
    void Reserve(std::uint64_t sizeBytes);
    [[noreturn]] static void Fail(const std::string& path, const char* action, int error);

    std::string target_;
    std::string path_;
    std::string identityPath_;
    int file_ = -1;
    std::uint64_t size_ = 0;
    std::uint64_t flushed_ = 0;  ///< how far writing to the disk has been asked for
};

}  // namespace zamctl
