#include "input_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <istream>
#include <system_error>

#include "failure.h"

namespace zamctl {
namespace {

constexpr std::size_t kChunkBytes = std::size_t{64} << 10U;

Input ReadAll(std::istream& in, const std::string& name, std::size_t mostBytes) {
    Input input{name, {}};
    std::size_t bytes = 0;
    do {
        // One byte more than allowed tells an input that is too large, of whatever size it is.
        input.text.resize(std::min(bytes + kChunkBytes, mostBytes + 1));
        in.read(input.text.data() + bytes, static_cast<std::streamsize>(input.text.size() - bytes));
        bytes += static_cast<std::size_t>(in.gcount());
    } while (in && bytes <= mostBytes);
    if (in.bad()) {
        throw UsageError(fmt::format("{}: cannot be read", name));
    }
    if (bytes > mostBytes) {
        throw UsageError(fmt::format("{}: has more than the {} bytes allowed", name, mostBytes));
    }
    input.text.resize(bytes);
    return input;
}

}  // namespace

Input ReadInput(const std::string& argument, const std::string& file, std::istream& in,
                std::size_t mostBytes) {
    if (file == "-") {
        return ReadAll(in, "standard input", mostBytes);
    }
    // A stream tells no reason, and need not set this one either.
    errno = 0;
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw UsageError(fmt::format("{}: '{}' cannot be opened: {}", argument, file,
                                     std::generic_category().message(errno)));
    }
    return ReadAll(stream, file, mostBytes);
}

}  // namespace zamctl
