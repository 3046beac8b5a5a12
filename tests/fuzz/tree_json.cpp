#include "tree_json/tree_json.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "check.h"

/// An input is a text in typed JSON.

namespace {

using zam_connector::tree_json::JsonError;
using zam_connector::tree_json::Read;
using zam_connector::tree_json::Write;
using zam_fuzz::Check;

void CheckError(const JsonError& error, std::string_view text) {
    const auto lineEnds = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    Check(error.Line() >= 1 && error.Line() <= lineEnds + 1, "an error stands in a line");
    Check(error.Column() >= 1 && error.Column() <= text.size() + 1, "an error stands in a column");
    Check(!error.Message().empty(), "an error says what is wrong");
    Check(error.Pointer().empty() || error.Pointer().front() == '/', "an error has a JSON pointer");
    const std::string place =
        "input:" + std::to_string(error.Line()) + ':' + std::to_string(error.Column()) + ": at ";
    Check(std::string_view(error.what()).substr(0, place.size()) == place,
          "an error begins with its place");
}

void CheckWritten(const zuv::TValue& tree, unsigned indent) {
    const std::string text = Write(tree, {.indent = indent});
    Check(text.empty() || text.back() != '\n', "a text has no newline at its end");
    const zuv::TValue again = Read(text);
    Check(again.IsIdenticalTo(tree), "a tree that was written is read back identically");
    Check(Write(again, {.indent = indent}) == text, "identical trees have the same text");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    zuv::TValue tree;
    try {
        tree = Read(text, "input");
    } catch (const JsonError& error) {
        CheckError(error, text);
        return 0;
    }
    CheckWritten(tree, 0);
    CheckWritten(tree, 2);
    return 0;
}
