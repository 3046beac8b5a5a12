#include "support/descriptors.h"

#include <fcntl.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <system_error>

namespace zam_platform::testing {
namespace {

constexpr char kFolder[] = "/proc/self/fd";

}  // namespace

std::set<int> OpenDescriptors() {
    std::set<int> found;
    for (const auto& entry : std::filesystem::directory_iterator(kFolder)) {
        found.insert(std::stoi(entry.path().filename().string()));
    }
    // The folder itself was open while it was read.
    std::erase_if(found, [](int descriptor) { return ::fcntl(descriptor, F_GETFD) < 0; });
    return found;
}

std::string Describe(const std::set<int>& descriptors) {
    std::string text;
    for (const int descriptor : descriptors) {
        std::error_code ignored;
        const auto target = std::filesystem::read_symlink(
            std::filesystem::path(kFolder) / std::to_string(descriptor), ignored);
        text += std::to_string(descriptor) + " = " + target.string() + "; ";
    }
    return text;
}

std::set<int> NewSince(const std::set<int>& before) {
    const std::set<int> now = OpenDescriptors();
    std::set<int> difference;
    std::set_difference(now.begin(), now.end(), before.begin(), before.end(),
                        std::inserter(difference, difference.end()));
    return difference;
}

std::set<int> Inheritable(const std::set<int>& descriptors) {
    std::set<int> found;
    std::copy_if(descriptors.begin(), descriptors.end(), std::inserter(found, found.end()),
                 [](int descriptor) { return (::fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0; });
    return found;
}

}  // namespace zam_platform::testing
