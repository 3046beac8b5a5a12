#include "certs/cert_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <exception>
#include <new>
#include <set>
#include <string_view>
#include <utility>

#include "certs/cert_file.h"
#include "common/log.h"
#include "data/file_io.h"
#include "lanes.h"
#include "zam_platform/posix_error.h"
#include "zam_platform/unique_fd.h"

namespace zam_service {

using zam_connector::common::Here;
using zam_connector::common::Log;
using zam_platform::UniqueFd;

namespace {

constexpr char kSourceFile[] = "cert_folder";
constexpr std::string_view kSuffix = ".json";

/// Largest file of the folder, in bytes: more than any answer has room for.
constexpr std::size_t kMaxCertFileBytes = std::size_t{1} << 20U;

/// A certificate, its key and its description change together: that is one change.
constexpr std::chrono::milliseconds kSettleTime{20};

constexpr mode_t kOthersMayRead = S_IRGRP | S_IROTH;

struct CloseFolder {
    void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};

std::string Shown(const std::string& name) {
    return fmt::format("'{}/{}'", kCertsFolder, name);
}

/// The folder of certificates; none when there is none.
UniqueFd OpenCerts(const FolderFiles& files) {
    return OpenBeneath(files.Open()->Get(), kCertsFolder, O_RDONLY | O_DIRECTORY,
                       fmt::format("'{}/{}'", files.Path(), kCertsFolder));
}

/// The descriptions in the folder. What begins with a dot is still being written.
std::set<std::string> Descriptions(int folder) {
    // A descriptor of its own, whose position nobody else moves.
    UniqueFd listed(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const std::unique_ptr<DIR, CloseFolder> entries(listed ? ::fdopendir(listed.Get()) : nullptr);
    if (entries == nullptr) {
        throw zam_platform::PosixError(kCertsFolder, errno);
    }
    listed.Release();  // the folder's now
    std::set<std::string> names;
    for (;;) {
        errno = 0;  // the end of a folder is told from a failure by this alone
        const dirent* const entry = ::readdir(entries.get());
        if (entry == nullptr) {
            break;
        }
        const std::string_view name = entry->d_name;
        if (name.front() != '.' && name.size() > kSuffix.size() &&
            name.substr(name.size() - kSuffix.size()) == kSuffix) {
            names.emplace(name);
        }
    }
    if (errno != 0) {
        throw zam_platform::PosixError(kCertsFolder, errno);
    }
    return names;
}

}  // namespace

/// On a worker.
class CertFolder::Scan {
public:
    explicit Scan(int folder) : folder_(folder) {}

    Entries Read() const {
        Entries entries;
        for (const std::string& name : Descriptions(folder_)) {
            if (entries.size() == kMaxCertFiles) {
                entries.insert_or_assign(
                    name, Entry{.cert = std::nullopt,
                                .level = zor::logger::kLevelError,
                                .complaint = fmt::format("is behind the {} allowed, and with all "
                                                         "that follow not served",
                                                         kMaxCertFiles)});
                break;
            }
            entries.emplace(name, ReadOne(name));
        }
        return entries;
    }

private:
    /// The text of a file, and whether others than its owner may read it.
    struct Text {
        std::string text;
        bool isOpenToOthers = false;
    };

    Text ReadText(const std::string& name) const {
        const std::string shown = Shown(name);
        const UniqueFd file = OpenBeneath(folder_, name, O_RDONLY, shown);
        struct stat status {};
        if (!file || ::fstat(file.Get(), &status) != 0) {
            throw zam_platform::PosixError(shown, file ? errno : ENOENT);
        }
        CheckRegular(file.Get(), shown);
        return {.text = ReadWhole(file.Get(), kMaxCertFileBytes, shown),
                .isOpenToOthers = (status.st_mode & kOthersMayRead) != 0};
    }

    Entry ReadOne(const std::string& name) const {
        Entry entry;
        try {
            std::string openKeyFile;
            Text description = ReadText(name);
            CertFile read =
                ReadCertFile(name, std::move(description.text),
                             [this, &openKeyFile](const std::string& beside, bool isKey) {
                                 Text text = ReadText(beside);
                                 if (isKey && text.isOpenToOthers) {
                                     openKeyFile = beside;
                                 }
                                 return std::move(text.text);
                             });
            if (read.holdsKey && description.isOpenToOthers) {
                openKeyFile = name;
            }
            entry.cert = std::move(read.cert);
            if (!openKeyFile.empty()) {
                entry.level = zor::logger::kLevelWarning;
                entry.complaint = fmt::format(
                    "the private key in {} can be read by others than its owner (chmod 600)",
                    Shown(openKeyFile));
            }
        } catch (const std::bad_alloc&) {
            throw;
        } catch (const std::exception& exception) {
            entry.level = zor::logger::kLevelError;
            entry.complaint = exception.what();
        }
        return entry;
    }

    int folder_;
};

CertFolder::CertFolder(asio::io_context& loop, zam_platform::WorkerPool& workers,
                       const FolderFiles& files)
    : files_(files),
      watcher_(loop, files.Path() + "/" + kCertsFolder,
               {.onFile = [this](const std::string& /*name*/) { ReadSoon(); },
                .onGone = [this](const std::string& /*name*/) { ReadSoon(); },
                .onLost = [this] { ReadSoon(); },
                .onFolder = [this] { Reattach(); }}),
      settle_(loop, [this] { std::exchange(isUnwatched_, false) ? Reattach() : reader_.Start(); }),
      reader_(loop, workers, kReadLane, [this] { return Read(); }) {
    try {
        const UniqueFd folder = OpenCerts(files_);
        watcher_.Watch(folder.Get());
        if (folder) {
            Publish(Scan(folder.Get()).Read());
        }
    } catch (const std::bad_alloc&) {
        AttachLater();
    } catch (const std::exception& exception) {
        watcher_.Watch(-1);
        Log(zor::logger::kLevelError, Here(kSourceFile, "CertFolder"),
            "{}: no certificates are served", exception.what());
    }
}

void CertFolder::Reattach() {
    if (Attach()) {
        ReadSoon();
    }
}

void CertFolder::Close() {
    isClosed_ = true;
    watcher_.Close();
    settle_.Cancel();
    reader_.Close();
}

/// Watches the folder that is there now. False when the data folder is away: it has taken the
/// certificates along, not deleted them.
bool CertFolder::Attach() {
    if (isClosed_ || !files_.IsInPlace()) {
        return false;
    }
    try {
        watcher_.Watch(OpenCerts(files_).Get());
    } catch (const std::bad_alloc&) {
        AttachLater();
        return false;
    } catch (const std::exception& exception) {
        Log(zor::logger::kLevelError, Here(kSourceFile, "Attach"),
            "{}: the last good version stays", exception.what());
        return false;
    }
    return true;
}

void CertFolder::AttachLater() noexcept {
    Log(zor::logger::kLevelError, Here(kSourceFile, "Attach"), "{}", kMemoryLacks);
    isUnwatched_ = true;
    settle_.RingAfter(kMemoryDelay);
}

void CertFolder::ReadSoon() {
    settle_.RingAfter(kSettleTime);
}

/// On a worker.
std::function<void()> CertFolder::Read() {
    std::optional<Entries> entries;
    std::string failure;
    try {
        const UniqueFd folder = OpenCerts(files_);
        entries = folder ? Scan(folder.Get()).Read() : Entries();
    } catch (const std::bad_alloc&) {
        Log(zor::logger::kLevelError, Here(kSourceFile, "Read"), "{}", kMemoryLacks);
        throw;
    } catch (const std::exception& exception) {
        failure = exception.what();
    }
    return [this, entries = std::move(entries), failure] { OnRead(entries, failure); };
}

void CertFolder::OnRead(const std::optional<Entries>& entries, const std::string& failure) {
    if (!entries) {
        Log(zor::logger::kLevelError, Here(kSourceFile, "OnRead"),
            "{}: the last good version stays", failure);
    } else if (files_.IsInPlace()) {
        Publish(*entries);
        Log(zor::logger::kLevelInformation, Here(kSourceFile, "OnRead"),
            "{}: read again, {} are served", kCertsFolder, certs_.size());
    }
}

void CertFolder::Publish(const Entries& entries) {
    std::map<std::string, ClientCert> certs;
    std::map<std::string, std::string> complaints;
    for (const auto& [name, entry] : entries) {
        if (entry.cert) {
            certs.emplace(name, *entry.cert);
        } else if (const auto before = certs_.find(name); before != certs_.end()) {
            certs.insert(*before);
        }
        Complain(name, entry);
        complaints.emplace(name, entry.complaint);
    }
    certs_ = std::move(certs);
    complaints_ = std::move(complaints);
}

/// The whole folder is read at every change: what has been said of a file already is not said
/// again.
void CertFolder::Complain(const std::string& name, const Entry& entry) {
    const auto before = complaints_.find(name);
    if (entry.complaint.empty() ||
        (before != complaints_.end() && before->second == entry.complaint)) {
        return;
    }
    const char* const consequence = entry.cert              ? ""
                                    : certs_.contains(name) ? ": the last good version stays"
                                                            : ": it is not served";
    Log(entry.level, Here(kSourceFile, "Complain"), "{}: {}{}", Shown(name), entry.complaint,
        consequence);
}

}  // namespace zam_service
