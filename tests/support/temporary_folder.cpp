#include "support/temporary_folder.h"

#include <stdlib.h>
#include <sys/stat.h>

#include <fstream>
#include <iterator>
#include <system_error>

#include "support/require.h"

namespace zam_test {

namespace fs = std::filesystem;

std::string Content(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

TemporaryFolder::TemporaryFolder()
    : path_((fs::temp_directory_path() / "zam_test.XXXXXX").string()) {
    Require(::mkdtemp(path_.data()) != nullptr, "mkdtemp");
    // A service refuses a folder that its owner may not write, whatever the process's mask is.
    Require(::chmod(path_.c_str(), 0700) == 0, "chmod");
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::string TemporaryFolder::Path(std::string_view name) const {
    return name.empty() ? path_ : path_ + '/' + std::string(name);
}

std::string TemporaryFolder::MakeFolder(std::string_view name, mode_t mode) const {
    std::string path = Path(name);
    Require(::mkdir(path.c_str(), 0700) == 0, "mkdir");
    Require(::chmod(path.c_str(), mode) == 0, "chmod");
    return path;
}

std::string TemporaryFolder::Write(std::string_view name, std::string_view text) const {
    std::string path = Path(name);
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    Require(!file.fail(), "write");
    return path;
}

std::string TemporaryFolder::Read(std::string_view name) const {
    return Content(Path(name));
}

std::vector<std::string> TemporaryFolder::Names() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(path_)) {
        names.push_back(entry.path().filename().string());
    }
    return names;
}

}  // namespace zam_test
