#include "codes.h"
#include "command_fixture.h"

namespace zamctl::test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsSupersetOf;
using ::testing::StartsWith;

class ExplainCommandTest : public CommandTest {
protected:
    ExplainCommandTest() { provider_.noService = "none"; }
};

TEST_F(ExplainCommandTest, PrintsTextAndFacilityOfEveryCode) {
    struct Row {
        const char* given;
        const char* line;
    };
    for (const auto& [given, line] :
         {Row{"0x80000046", "0x80000046 Invalid argument (facility 0, general)"},
          Row{"0X8000004b", "0x8000004B Unspecified error (facility 0, general)"},
          Row{"-2147483578", "0x80000046 Invalid argument (facility 0, general)"},
          Row{"2147483718", "0x80000046 Invalid argument (facility 0, general)"},
          Row{"0", "0x00000000 No error (facility 0, general)"},
          Row{"0x1", "0x00000001 False (facility 0, general)"},
          Row{"0x80010116", "0x80010116 Network error (facility 1, platform)"},
          Row{"0x80000047", "0x80000047 Unknown result code (facility 0, general)"},
          Row{"0x80020000", "0x80020000 Unknown result code (facility 2, unknown)"},
          Row{"-1", "0xFFFFFFFF Unknown result code (facility 32767, unknown)"},
          Row{"-2147483648", "0x80000000 Unknown result code (facility 0, general)"},
          Row{"4294967295", "0xFFFFFFFF Unknown result code (facility 32767, unknown)"}}) {
        SCOPED_TRACE(given);
        const Ran ran = Run({"explain", given});
        EXPECT_EQ(ran.status, 0) << ran.err;
        EXPECT_EQ(ran.out, line + std::string("\n"));
    }
}

TEST_F(ExplainCommandTest, TakesSeveralCodes) {
    EXPECT_EQ(Run({"explain", "1", "-1"}).out,
              "0x00000001 False (facility 0, general)\n"
              "0xFFFFFFFF Unknown result code (facility 32767, unknown)\n");
}

TEST_F(ExplainCommandTest, PrintsOneDocumentForAllCodes) {
    EXPECT_EQ(Run({"--json", "explain", "0x80010116", "1"}).out,
              R"({"codes":[{"code":-2147417834,"hex":"0x80010116","text":"Network error",)"
              R"("failure":true,"facility":1,"facility_name":"platform"},)"
              R"({"code":1,"hex":"0x00000001","text":"False","failure":false,"facility":0,)"
              R"("facility_name":"general"}]})"
              "\n");
}

TEST_F(ExplainCommandTest, ListsEveryCodeThatHasAText) {
    const Ran ran = Run({"explain", "--list"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_THAT(ran.out, StartsWith("0x00000000 No error (facility 0, general)\n"
                                    "0x00000001 False (facility 0, general)\n"
                                    "0x80000001 Interface not supported"));
    EXPECT_THAT(ran.out, HasSubstr("0x80010116 Network error"));
    EXPECT_THAT(ran.out, ::testing::Not(HasSubstr("Unknown result code")));
    // The general codes and 17 platform codes.
    EXPECT_EQ(Run({"--json", "explain", "-l"}).Document().at("codes").size(), 77U);
}

TEST_F(ExplainCommandTest, RefusesWhatIsNoCode) {
    for (const std::string wrong : {"nonsense", "", "0x", "0x1G", "0x100000000", "4294967296",
                                    "-2147483649", "1.5", "+1", " 1", "0x-1", "--1"}) {
        SCOPED_TRACE(wrong);
        ExpectFailure(Run({"--json", "explain", "1", wrong}), 1);
    }
    const Ran ran = Run({"explain", "nonsense"});
    EXPECT_THAT(ran.err, HasSubstr("'nonsense' is no result code; allowed are 0x0 to 0xFFFFFFFF "
                                   "and -2147483648 to 4294967295"));
}

TEST_F(ExplainCommandTest, NeedsEitherCodesOrTheList) {
    for (const std::vector<std::string>& wrong :
         std::vector<std::vector<std::string>>{{"explain"}, {"explain", "-l", "1"}}) {
        const Ran ran = Run(wrong);
        ExpectFailure(ran, 1);
        EXPECT_THAT(ran.err, HasSubstr("give either result codes or --list"));
    }
}

TEST_F(ExplainCommandTest, AsksNoService) {
    EXPECT_EQ(Run({"explain", "1"}).status, 0);
    EXPECT_EQ(provider_.opens, 0);
}

}  // namespace
}  // namespace zamctl::test
