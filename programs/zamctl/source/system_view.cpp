#include "system_view.h"

#include <link.h>
#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace zamctl {
namespace {

int CollectLibrary(dl_phdr_info* info, std::size_t /*size*/, void* collected) {
    const std::filesystem::path path(info->dlpi_name);
    if (path.filename().string().starts_with("libzam_")) {
        std::error_code error;
        const std::filesystem::path resolved = std::filesystem::canonical(path, error);
        static_cast<std::vector<LoadedLibrary>*>(collected)->push_back(
            {(error ? path : resolved).string()});
    }
    return 0;
}

}  // namespace

std::optional<std::string> HostSystemView::Variable(const char* name) const {
    // As the library asks: a caller's environment does not lead a program with more rights.
    const char* const value = ::secure_getenv(name);
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

vd::RuntimeDirectoryDiagnosis HostSystemView::RuntimeDirectory(
    const std::vector<std::string>& services) const {
    return vd::DiagnoseRuntimeDirectory(services);
}

uid_t HostSystemView::User() const {
    return ::geteuid();
}

std::string HostSystemView::UserName(uid_t user) const {
    std::array<char, 16384> buffer{};  // entries are a few hundred bytes
    passwd entry{};
    passwd* found = nullptr;
    ::getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found);
    return found == nullptr ? std::string() : found->pw_name;
}

std::vector<LoadedLibrary> HostSystemView::Libraries() const {
    std::vector<LoadedLibrary> libraries;
    ::dl_iterate_phdr(&CollectLibrary, &libraries);
    return libraries;
}

bool HostSystemView::ErrIsTerminal() const {
    return ::isatty(STDERR_FILENO) == 1;
}

}  // namespace zamctl
