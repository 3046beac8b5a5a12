#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "tree_json/tree_json.h"

namespace {

using zam_connector::tree_json::JsonError;
using zam_connector::tree_json::Read;
using zam_connector::tree_json::Write;

/// Every kind, every spelling and every place where something may go wrong.
constexpr std::string_view kGolden[] = {
    "// by hand\r\n{ /* all */ \"none\": null, \"yes\": true, \"no\": false, \"whole\": -17,\n"
    "  \"real\": [-0.0, 1.5e+10, 2E-3, 0.25], \"text\": \"a\\\"\\\\\\/\\n\\u00e4\\ud83d\\ude00\",\n"
    "  \"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\": [[], {}, [[1], [2, 3]]] /**/ }\n",
    R"([{"$int8":-128},{"$int16":32767},{"$int32":-5},{"$uint8":255},{"$uint16":7},)"
    R"({"$uint32":4294967295},{"$uint64":18446744073709551615},{"$time":1732000000},)"
    R"({"$double":"nan"},{"$double":"-inf"},{"$double":"0xfff8000000000001"},)"
    R"({"$blob":"AH//"},{"$string":"Yf8="},-9223372036854775808])",
    R"({"$map":[["a",{"$$int8":{"$$$x":1}}],[{"$string":"/w=="},{"$map":[["b",[]]]}],["c",)"
    R"({"$int8":1,"$$":{"d~/e":{"$time":0}}}]]})",
    "{\n    \"list\": [\n        {\"$int8\": 5},\n        \"x\"\n    ]\n}",
};

/// A tree that survives writing and reading, or an error with a place: nothing else.
void ExpectTreeOrError(std::string_view text) {
    try {
        const zuv::TValue tree = Read(text);
        EXPECT_TRUE(Read(Write(tree)).IsIdenticalTo(tree)) << text;
    } catch (const JsonError& error) {
        EXPECT_GE(error.Line(), 1U) << text;
        EXPECT_GE(error.Column(), 1U) << text;
        EXPECT_FALSE(error.Message().empty()) << text;
        EXPECT_EQ(std::string_view(error.what()).find('\n'), std::string_view::npos) << text;
    }
}

TEST(MangledTypedJson, OfUnmangledTextsIsATree) {
    for (const std::string_view golden : kGolden) {
        EXPECT_NO_THROW(Read(golden)) << golden;
    }
}

TEST(MangledTypedJson, IsATreeOrAnErrorWhicheverByteIsReplaced) {
    for (const std::string_view golden : kGolden) {
        for (std::size_t at = 0; at < golden.size(); ++at) {
            for (const char byte : {'\x00', '\x7F', '\x80', '\xFF'}) {
                std::string text(golden);
                text[at] = byte;
                ExpectTreeOrError(text);
            }
        }
    }
}

TEST(MangledTypedJson, IsATreeOrAnErrorWithEveryBitFlipped) {
    for (const std::string_view golden : kGolden) {
        for (std::size_t bit = 0; bit < golden.size() * 8; ++bit) {
            std::string text(golden);
            text[bit / 8] = static_cast<char>(text[bit / 8] ^ (1 << bit % 8));
            ExpectTreeOrError(text);
        }
    }
}

TEST(MangledTypedJson, IsATreeOrAnErrorWhereverItIsCut) {
    for (const std::string_view golden : kGolden) {
        for (std::size_t length = 0; length < golden.size(); ++length) {
            // A copy of its own, so that a look beyond the end shows.
            const std::vector<char> text(golden.begin(),
                                         golden.begin() + static_cast<std::ptrdiff_t>(length));
            ExpectTreeOrError({text.data(), text.size()});
        }
    }
}

}  // namespace
