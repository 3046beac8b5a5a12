#include "log/log_line.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "log/log_folding.h"

namespace zam_platform::testing {
namespace {

std::string LineBody(const LogRecord& record) {
    std::vector<char> bytes(kMaxLogBodyBytes);
    BoundedText out(bytes.data(), bytes.size());
    PutBody(out, record);
    return std::string(out.View());
}

std::string LineText(std::string_view text) {
    return LineBody({.level = 4, .file = "f", .line = 1, .function = "F", .text = text})
        .substr(std::string_view("E [f:1 F] ").size());
}

TEST(LogLine, TellsLevelFileLineAndFunction) {
    const auto body = [](int level, const char* file, int line, const char* function) {
        return LineBody(
            {.level = level, .file = file, .line = line, .function = function, .text = "t"});
    };
    EXPECT_EQ(body(0, "f", 12, "F"), "T [f:12 F] t");
    EXPECT_EQ(body(4, "folder/f.cpp", 0, "~F"), "E [f.cpp:0 ~F] t");
    EXPECT_EQ(body(-3, nullptr, -5, nullptr), "T [:-5 ] t");
    EXPECT_EQ(body(99, "f", 2147483647, "F"), "C [f:2147483647 F] t");
}

TEST(LogLine, EscapesWhatATerminalActsUpon) {
    struct {
        std::string text;
        const char* written;
    } const rows[] = {
        {"plain \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80",
         "plain \xC3\xA9 \xE2\x82\xAC \xF0\x9F\x98\x80"},
        {std::string("\0\n\t\x1B\x7F", 5), R"(\x00\x0a\x09\x1b\x7f)"},
        {"\xC2\x80\xC2\x9B\xC2\x9F\xC2\xA0", "\\u{0080}\\u{009b}\\u{009f}\xC2\xA0"},
        {"\xC2\xAD\xD8\x9C", R"(\u{00ad}\u{061c})"},
        {"\xE2\x80\x8B\xE2\x80\x8E\xE2\x80\x8F\xE2\x80\x90",
         "\\u{200b}\\u{200e}\\u{200f}\xE2\x80\x90"},
        {"\xE2\x80\xA8\xE2\x80\xA9\xE2\x80\xAA\xE2\x80\xAE\xE2\x80\xAF",
         "\\u{2028}\\u{2029}\\u{202a}\\u{202e}\xE2\x80\xAF"},
        {"\xE2\x81\xA0\xE2\x81\xA6\xE2\x81\xA9\xE2\x81\xB0",
         "\\u{2060}\\u{2066}\\u{2069}\xE2\x81\xB0"},
        {"\xEF\xBB\xBF\xEF\xBF\xB9\xF3\xA0\x80\x81", R"(\u{feff}\u{fff9}\u{e0001})"},
        {"\xFF\xC3", R"(\xff\xc3)"},
        {"\xC0\x9B", R"(\xc0\x9b)"},          // overlong
        {"\xED\xA0\x80", R"(\xed\xa0\x80)"},  // a surrogate
        {"\xF4\x90\x80\x80", R"(\xf4\x90\x80\x80)"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(LineText(row.text), row.written);
    }
}

TEST(LogLine, CutsALongTextBetweenCharacters) {
    const std::string most(zor::logger::kMaxLogTextBytes, 'x');
    EXPECT_EQ(LineText(most), most);
    EXPECT_EQ(LineText(most + "yz"), most + "... (2 bytes more)");
    const std::string odd = "\xC3\xA9" + most.substr(3) + "\xE2\x82\xAC";
    EXPECT_EQ(LineText(odd), odd.substr(0, odd.size() - 3) + "... (3 bytes more)");
}

TEST(LogLine, HasRoomForTheLongestRecord) {
    const std::string name(1000, 'n');
    const std::string escapes(zor::logger::kMaxLogTextBytes + 1, '\1');
    const std::string body = LineBody(
        {.level = 4, .file = name.c_str(), .line = -1, .function = name.c_str(), .text = escapes});
    EXPECT_TRUE(body.ends_with("\\x01... (1 bytes more)")) << body.size();
}

TEST(LogLine, BeginsWithLocalTimeAndProcess) {
    std::array<char, kMaxLogHeadBytes> bytes;
    BoundedText out(bytes.data(), bytes.size());
    const timespec time{.tv_sec = 1772269507, .tv_nsec = 42'999'999};
    PutHead(out, time, 4711);
    std::array<char, 32> expected;
    tm local{};
    ::localtime_r(&time.tv_sec, &local);
    std::strftime(expected.data(), expected.size(), "%Y-%m-%dT%H:%M:%S", &local);
    EXPECT_EQ(out.View(), expected.data() + std::string(".042 4711 "));
}

using std::chrono::milliseconds;

constexpr LogFolding::Time kNoon{};

TEST(LogFolding, LeavesOutWhatWasWrittenLessThanASecondAgo) {
    LogFolding folding;
    EXPECT_FALSE(folding.IsRepeated("a", kNoon));
    folding.Remember("a", kNoon);
    EXPECT_TRUE(folding.IsRepeated("a", kNoon));
    EXPECT_TRUE(folding.IsRepeated("a", kNoon + milliseconds{999}));
    EXPECT_FALSE(folding.IsRepeated("b", kNoon));
    EXPECT_FALSE(folding.IsRepeated("a", kNoon + milliseconds{1000}));
    folding.Remember("a", kNoon + milliseconds{1000});
    EXPECT_TRUE(folding.IsRepeated("a", kNoon + milliseconds{1999}));
}

TEST(LogFolding, RemembersTheLastLinesThatWereWritten) {
    LogFolding folding;
    const auto line = [](std::size_t number) { return "line " + std::to_string(number); };
    for (std::size_t number = 0; number < LogFolding::kMaxLines; ++number) {
        folding.Remember(line(number), kNoon + milliseconds(number));
    }
    const LogFolding::Time later = kNoon + milliseconds{100};
    for (std::size_t number = 0; number < LogFolding::kMaxLines; ++number) {
        EXPECT_TRUE(folding.IsRepeated(line(number), later)) << number;
    }
    folding.Remember(line(LogFolding::kMaxLines), later);
    EXPECT_FALSE(folding.IsRepeated(line(0), later));
    EXPECT_TRUE(folding.IsRepeated(line(1), later));
    EXPECT_TRUE(folding.IsRepeated(line(LogFolding::kMaxLines), later));
}

}  // namespace
}  // namespace zam_platform::testing
