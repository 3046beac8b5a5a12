#include "served_files.h"

#include <fstream>
#include <string_view>
#include <system_error>
#include <vector>

namespace zamctl {
namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

constexpr char kDefaultRuntimeDirectory[] = "/run/zam_connector";

/// Texts that end in `end`; none of a file that this user may not read.
Texts ReadTexts(const fs::path& file, char end) {
    Texts texts;
    std::ifstream stream(file, std::ios::binary);
    for (std::string text; std::getline(stream, text, end);) {
        texts.push_back(text);
    }
    return texts;
}

/// What stands behind NAME= in an environment; empty when nothing does.
std::string VariableOf(const Texts& environment, const std::string& name) {
    for (const std::string& entry : environment) {
        if (entry.starts_with(name + "=")) {
            return entry.substr(name.size() + 1);
        }
    }
    return {};
}

/// What a command line gives an option, the last time; empty when nothing.
std::string ValueOf(const Texts& words, const std::string& option) {
    std::string value;
    for (std::size_t at = 0; at < words.size(); ++at) {
        if (words[at].starts_with(option + "=")) {
            value = words[at].substr(option.size() + 1);
        } else if (words[at] == option && at + 1 < words.size()) {
            value = words[at + 1];
        }
    }
    return value;
}

/// As a service chooses it.
std::string RuntimeDirectoryOf(const Texts& words, const Texts& environment) {
    if (std::string given = ValueOf(words, "--runtime-dir"); !given.empty()) {
        return given;
    }
    if (std::string own = VariableOf(environment, "ZAM_RUNTIME_DIR"); !own.empty()) {
        return own;
    }
    const std::string user = VariableOf(environment, "XDG_RUNTIME_DIR");
    return user.empty() ? kDefaultRuntimeDirectory : user + "/zam_connector";
}

/// Whether two paths are the same but for slashes: a service may have been given some at the end.
bool IsSamePath(const fs::path& left, const fs::path& right) {
    return left / "" == right / "";
}

}  // namespace

std::optional<std::string> FindServedFolder(const std::string& runtimeDirectory,
                                            const fs::path& processes) {
    std::error_code error;
    for (const fs::directory_entry& process : fs::directory_iterator(processes, error)) {
        const fs::path& path = process.path();
        // The system cuts names of processes at 15 bytes; this one has 14.
        if (ReadTexts(path / "comm", '\n') != Texts{"zam_connectord"}) {
            continue;
        }
        const Texts words = ReadTexts(path / "cmdline", '\0');
        const std::string data = ValueOf(words, "--data");
        if (!data.empty() &&
            IsSamePath(RuntimeDirectoryOf(words, ReadTexts(path / "environ", '\0')),
                       runtimeDirectory)) {
            // A relative name is meant from where the service stands; an absolute one replaces it.
            return fs::read_symlink(path / "cwd", error) / data / "files";
        }
    }
    return std::nullopt;
}

Offer OfferServedFiles(Context& context, const std::string& begun) {
    Offer offer{.kind = Offer::Kind::Parts};
    const std::optional<std::string> folder =
        FindServedFolder(context.system.RuntimeDirectory({}).directory.path, "/proc");
    const std::string above = begun.substr(0, begun.rfind('/') + 1);
    // The service refuses such names, and other folders are nobody's business here.
    if (!folder || above.starts_with('/') || ("/" + above).find("/../") != std::string::npos) {
        return offer;
    }
    std::error_code error;
    for (const fs::directory_entry& entry :
         fs::directory_iterator(fs::path(*folder) / above, error)) {
        std::error_code unknown;
        offer.words.push_back(above + entry.path().filename().string() +
                              (entry.is_directory(unknown) ? "/" : ""));
    }
    return offer;
}

}  // namespace zamctl
