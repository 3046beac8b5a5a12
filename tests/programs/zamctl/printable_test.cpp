#include "printable.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace zamctl::test {
namespace {

struct PrintableRow {
    std::string text;
    std::string quoted;
    std::string printable;
};

const PrintableRow kRows[] = {
    {"", R"("")", ""},
    {"plain text", R"("plain text")", "plain text"},
    {"a\"b\\c", R"("a\"b\\c")", "a\"b\\c"},
    {"line\nnext\ttab\r", R"("line\nnext\ttab\r")", "line\nnext\ttab\\x0d"},
    {std::string("\0\x1b[31m\x7f", 7), R"("\x00\x1b[31m\x7f")", R"(\x00\x1b[31m\x7f)"},
    {"\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80", "\"\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80\"",
     "\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80"},
    {"\xc2\x9b"
     "31m",
     R"("\u{009b}31m")", R"(\u{009b}31m)"},
    {"\xc2\xa0", "\"\xc2\xa0\"", "\xc2\xa0"},
    {"\xe2\x80\xae", R"("\u{202e}")", R"(\u{202e})"},
    {"\xef\xbb\xbf", R"("\u{feff}")", R"(\u{feff})"},
    {"\xf3\xa0\x80\x81", R"("\u{e0001}")", R"(\u{e0001})"},
    {"\xff\xc3", R"("\xff\xc3")", R"(\xff\xc3)"},
    {"\xc0\x9b", R"("\xc0\x9b")", R"(\xc0\x9b)"},              // overlong
    {"\xed\xa0\x80", R"("\xed\xa0\x80")", R"(\xed\xa0\x80)"},  // a surrogate
    {"\xe2\x82", R"("\xe2\x82")", R"(\xe2\x82)"},
};

TEST(Printable, LeavesNothingThatATerminalActsUpon) {
    for (const PrintableRow& row : kRows) {
        SCOPED_TRACE(row.quoted);
        EXPECT_EQ(Quote(row.text), row.quoted);
        EXPECT_EQ(Printable(row.text), row.printable);
    }
}

TEST(Printable, KeepsALineOne) {
    for (const PrintableRow& row : kRows) {
        const bool hasLayout = row.text.find_first_of("\n\t") != std::string::npos;
        EXPECT_EQ(PrintableLine(row.text),
                  hasLayout ? R"(line\x0anext\x09tab\x0d)" : row.printable);
    }
}

TEST(Printable, EscapesJsonWithoutChangingItsMeaning) {
    const nlohmann::json texts = {
        "plain",    "\x7f", "\xc2\x9b", "\xe2\x80\xae", "\xf3\xa0\x80\x81",
        "\xc3\xa9", "\x1b", "a\nb"};
    const std::string safe = PrintableJson(texts.dump());
    EXPECT_EQ(safe, R"(["plain","\u007f","\u009b","\u202e","\udb40\udc01",")"
                    "\xc3\xa9"
                    R"(","\u001b","a\nb"])");
    EXPECT_EQ(nlohmann::json::parse(safe), texts);
    const std::string indented = texts.dump(2);
    EXPECT_EQ(nlohmann::json::parse(PrintableJson(indented)), texts);
}

}  // namespace
}  // namespace zamctl::test
