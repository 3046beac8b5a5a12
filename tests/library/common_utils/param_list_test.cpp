#include <iterator>
#include <list>
#include <memory>
#include <stdexcept>

#include "converter_fixture.h"

namespace zam_connector::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using zam_converter::ParseZamParamList;

std::optional<int> ParseInt(const zuv::TValue& node) {
    const int* const number = node.GetIf<int>();
    return number == nullptr ? std::nullopt : std::optional<int>(*number);
}

TEST(ParamList, AppendsEachResultInOrder) {
    std::vector<int> numbers{9};
    EXPECT_EQ(ParseZamParamList(zuv::MakeVector(3, 1, 2), std::back_inserter(numbers), ParseInt),
              0);
    EXPECT_THAT(numbers, ElementsAre(9, 3, 1, 2));
}

TEST(ParamList, AppendsNothingForAnEmptyVector) {
    std::vector<int> numbers;
    EXPECT_EQ(ParseZamParamList(zuv::Vector(), std::back_inserter(numbers), ParseInt), 0);
    EXPECT_THAT(numbers, IsEmpty());
}

TEST(ParamList, EndsAtTheFirstElementThatFails) {
    int parsed = 0;
    const auto parse = [&](const zuv::TValue& node) {
        ++parsed;
        return ParseInt(node);
    };
    std::vector<int> numbers;
    EXPECT_EQ(ParseZamParamList(zuv::MakeVector(3, "one", 2), std::back_inserter(numbers), parse),
              kUnspecifiedError);
    EXPECT_THAT(numbers, ElementsAre(3));
    EXPECT_EQ(parsed, 2);
}

TEST(ParamList, TakesAnyOutputIterator) {
    std::list<int> numbers;
    EXPECT_EQ(ParseZamParamList(zuv::MakeVector(3, 1), std::front_inserter(numbers), ParseInt), 0);
    EXPECT_THAT(numbers, ElementsAre(1, 3));
    int places[3] = {};
    EXPECT_EQ(ParseZamParamList(zuv::MakeVector(3, 1), std::begin(places), ParseInt), 0);
    EXPECT_THAT(places, ElementsAre(3, 1, 0));
}

TEST(ParamList, MovesResults) {
    std::vector<std::unique_ptr<int>> numbers;
    const auto parse = [](const zuv::TValue& node) {
        return std::optional(std::make_unique<int>(node.Get<int>()));
    };
    EXPECT_EQ(ParseZamParamList(zuv::MakeVector(5), std::back_inserter(numbers), parse), 0);
    ASSERT_EQ(numbers.size(), 1U);
    EXPECT_EQ(*numbers[0], 5);
}

TEST(ParamList, ThrowsForANodeThatIsNoVector) {
    std::vector<int> numbers;
    for (const zuv::TValue& value : ValuesOfAllKinds()) {
        if (!value.Is<zuv::Vector>()) {
            EXPECT_THROW(ParseZamParamList(value, std::back_inserter(numbers), ParseInt),
                         std::bad_variant_access);
        }
    }
    EXPECT_THAT(numbers, IsEmpty());
}

TEST(ParamList, LetsThroughWhatTheParserThrows) {
    std::vector<int> numbers;
    const auto parse = [](const zuv::TValue& /*node*/) -> std::optional<int> {
        throw std::runtime_error("parser of the test");
    };
    EXPECT_THROW(ParseZamParamList(zuv::MakeVector(1), std::back_inserter(numbers), parse),
                 std::runtime_error);
}

}  // namespace
}  // namespace zam_connector::test
