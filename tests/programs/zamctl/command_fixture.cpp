#include "command_fixture.h"

#include "support/lines.h"

namespace zamctl::test {

Json Ran::Document() const {
    const std::vector<Json> documents = Documents();
    EXPECT_EQ(documents.size(), 1U) << out;
    return documents.size() == 1 ? documents.front() : Json();
}

std::vector<Json> Ran::Documents() const {
    std::vector<Json> documents;
    for (const std::string& line : zam_test::Lines(out)) {
        Json document = Json::parse(line, nullptr, false);
        EXPECT_FALSE(document.is_discarded()) << line;
        documents.push_back(std::move(document));
    }
    return documents;
}

Ran CommandTest::Run(const std::vector<std::string>& arguments, const std::string& input) {
    std::istringstream in(input);
    std::ostringstream out;
    std::ostringstream err;
    RecordKeeper records(err, zor::logger::kLevelError);
    Application application({in, out, err, provider_, records, clock_, system_});
    const int status = application.Run(arguments);
    return {status, out.str(), err.str()};
}

void CommandTest::ExpectFailure(const Ran& ran, int status) {
    EXPECT_EQ(ran.status, status) << ran.err;
    EXPECT_EQ(ran.out, "");
    EXPECT_THAT(ran.err, ::testing::StartsWith("zamctl"));
    EXPECT_THAT(ran.err, ::testing::EndsWith("\n"));
}

}  // namespace zamctl::test
