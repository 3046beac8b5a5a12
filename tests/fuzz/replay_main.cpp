#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

/// Runs a fuzz target over files and folders, for compilers without libFuzzer and for ordinary
/// builds, where inputs once found must keep passing.

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

/// The files behind an argument, in an order that does not depend on the file system.
std::vector<fs::path> FilesOf(const fs::path& argument) {
    if (!fs::is_directory(argument)) {
        return {argument};
    }
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(argument)) {
        if (entry.is_regular_file()) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<char> ContentOf(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::vector<char> content(std::istreambuf_iterator<char>(stream), {});
    if (!stream) {
        throw std::runtime_error("cannot read " + file.string());
    }
    return content;
}

int Replay(int count, char** arguments) {
    std::size_t replayed = 0;
    for (int index = 1; index < count; ++index) {
        for (const fs::path& file : FilesOf(arguments[index])) {
            const std::vector<char> content = ContentOf(file);
            // Said before, so that a crash has a name.
            std::fprintf(stderr, "replaying %s\n", file.c_str());
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(content.data()),
                                   content.size());
            ++replayed;
        }
    }
    if (replayed == 0) {
        std::fprintf(stderr, "no input to replay\n");
        return 1;
    }
    std::fprintf(stderr, "replayed %zu inputs\n", replayed);
    return 0;
}

}  // namespace

int main(int count, char** arguments) {
    try {
        return Replay(count, arguments);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
