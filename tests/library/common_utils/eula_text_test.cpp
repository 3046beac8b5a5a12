#include <limits>

#include "converter_fixture.h"

namespace zam_connector::test {
namespace {

using zam_converter::ConvertStringToZamParams;
using zam_converter::ParseStringFromZamParams;
using zuv::Kind;

constexpr long kLargestSize = std::numeric_limits<long>::max();

class TextPieces : public ConverterTest {
protected:
    const Parser parser_{"zam_converter_eula", "ParseStringFromZamParams"};
};

TEST_F(TextPieces, HaveTheirSizeExceptTheLast) {
    using zuv::MakeVector;
    struct {
        std::string_view text;
        long pieceSize;
        zuv::Vector pieces;
    } const rows[] = {
        {"", 1, {}},
        {"", kLargestSize, {}},
        {"a", 1, MakeVector("a")},
        {"abc", 1, MakeVector("a", "b", "c")},
        {"abc", 2, MakeVector("ab", "c")},
        {"abc", 3, MakeVector("abc")},
        {"abc", 4, MakeVector("abc")},
        {"abc", kLargestSize, MakeVector("abc")},
        {"abcd", 2, MakeVector("ab", "cd")},
        {"0123456789", 4, MakeVector("0123", "4567", "89")},
        {std::string_view("a\0b", 3), 2, MakeVector(std::string_view("a\0", 2), "b")},
        {"\xC3\xA4", 1, MakeVector("\xC3", "\xA4")},
    };
    for (const auto& row : rows) {
        const std::optional<zuv::TValue> tree = ConvertStringToZamParams(row.text, row.pieceSize);
        ASSERT_EQ(tree, zuv::TValue(row.pieces)) << row.text << " " << row.pieceSize;
        EXPECT_EQ(ParseStringFromZamParams(*tree), row.text);
    }
}

TEST_F(TextPieces, GiveTheTextBackForEveryLengthAndSize) {
    const std::string whole = "a text of twenty-six bytes";
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        const std::string_view text = std::string_view(whole).substr(0, length);
        for (long pieceSize = 1; pieceSize <= 30; ++pieceSize) {
            const std::optional<zuv::TValue> tree = ConvertStringToZamParams(text, pieceSize);
            ASSERT_TRUE(tree);
            const auto size = static_cast<std::size_t>(pieceSize);
            EXPECT_EQ(tree->Get<zuv::Vector>().size(), (length + size - 1) / size);
            EXPECT_EQ(ParseStringFromZamParams(*tree), text);
        }
    }
}

TEST_F(TextPieces, RefuseASizeThatIsNotAboveZero) {
    for (const char* text : {"", "text"}) {
        for (const long pieceSize : {0L, -1L, std::numeric_limits<long>::min()}) {
            EXPECT_EQ(ConvertStringToZamParams(text, pieceSize), std::nullopt);
            ExpectLines(
                {"4 zam_converter_eula ConvertStringToZamParams: ConvertStringToZamParams "
                 "failed with exception [Invalid argument : piece size " +
                 std::to_string(pieceSize) + " is not above 0]"});
        }
    }
}

TEST_F(TextPieces, AreReadFromAStringAsItStands) {
    EXPECT_EQ(ParseStringFromZamParams(""), "");
    EXPECT_EQ(ParseStringFromZamParams(std::string("a\0b", 3)), std::string("a\0b", 3));
}

TEST_F(TextPieces, AreReadInOrder) {
    EXPECT_EQ(ParseStringFromZamParams(zuv::MakeVector("b", "", "a")), "ba");
    EXPECT_EQ(ParseStringFromZamParams(zuv::Vector()), "");
}

TEST_F(TextPieces, AreRefusedInNodesOfOtherKinds) {
    for (const zuv::TValue& value : ValuesOfAllKinds()) {
        if (!value.Is<std::string>() && !value.Is<zuv::Vector>()) {
            ExpectFails(ParseStringFromZamParams, value,
                        {BadKind(parser_, value.Kind(), Kind::Vector)});
        }
    }
}

TEST_F(TextPieces, AreRefusedWhenOneIsNoString) {
    for (const zuv::TValue& value : ValuesOfAllKinds()) {
        if (!value.Is<std::string>()) {
            ExpectFails(ParseStringFromZamParams, zuv::MakeVector("text", value, 5),
                        {BadKind(parser_, value.Kind(), Kind::String)});
        }
    }
}

}  // namespace
}  // namespace zam_connector::test
