#include "zam_connector_testing/service_folders.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace zam_connector::testing {
namespace {

namespace fs = std::filesystem;

std::string ReadFile(const std::string& path) {
    const std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

}  // namespace

ServiceFolders::ServiceFolders() {
    std::string pattern = (fs::temp_directory_path() / "zam_service.XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("folder for a service: " + std::generic_category().message(errno));
    }
    folder_ = pattern;
    runtimeDirectory_ = Path("run");
    dataDirectory_ = Path("data");
    fs::create_directory(runtimeDirectory_);
    fs::create_directory(dataDirectory_);
    // Whatever the process's mask allows to others: a service refuses a directory that they may
    // write.
    fs::permissions(runtimeDirectory_, fs::perms::owner_all);
}

ServiceFolders::~ServiceFolders() {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
}

void ServiceFolders::WriteData(const std::string& name, const std::string& content) const {
    const fs::path path = fs::path(dataDirectory_) / name;
    const std::string unfinished = path.string() + ".new";
    fs::create_directories(path.parent_path());
    std::ofstream file(unfinished, std::ios::binary);
    file << content;
    file.close();
    if (!file) {
        throw std::runtime_error("write " + unfinished);
    }
    fs::rename(unfinished, path);
}

std::string ServiceFolders::ReadData(const std::string& name) const {
    return ReadFile(dataDirectory_ + "/" + name);
}

std::string ServiceFolders::Read(const std::string& name) const {
    return ReadFile(Path(name));
}

}  // namespace zam_connector::testing
