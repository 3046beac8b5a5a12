#include <limits>

#include "converter_fixture.h"

namespace zam_connector::test {
namespace {

using qor::types::Timestamp;
using zam_converter::ConvertEulaData;
using zam_converter::ConvertEulaIdentityInfo;
using zam_converter::ConvertEulas;
using zam_converter::ParseEula;
using zam_converter::ParseEulas;
using zuv::Kind;

constexpr char kEulaFile[] = "zam_converter_eula";

const std::vector<KeyRow>& EulaRows() {
    static const std::vector<KeyRow> rows{
        {"updeulaid", {Kind::Blob}},
        {"updeulareleasetime", {Kind::Int64}},
        {"updeula", {Kind::Vector, Kind::String}},
        {"updlocinfo", {Kind::Int32}},
    };
    return rows;
}

/// What is logged for a piece size that is not above 0.
std::string PieceSizeLine(int pieceSize) {
    return "4 zam_converter_eula ConvertStringToZamParams: ConvertStringToZamParams failed with "
           "exception [Invalid argument : piece size " +
           std::to_string(pieceSize) + " is not above 0]";
}

constexpr char kTextFailure[] =
    "4 zam_converter_eula ConvertEulaData: ConvertEulaData: Could not convert eula text";

class EulaConverters : public ConverterTest {
protected:
    const Parser parser_{kEulaFile, "ParseEula"};
};

TEST_F(EulaConverters, WriteEveryField) {
    EXPECT_EQ(ConvertEulaData(SampleEula(), 8), SampleEulaTree());
}

TEST_F(EulaConverters, ReadEveryField) {
    EXPECT_EQ(ParseEula(SampleEulaTree()), SampleEula());
}

TEST_F(EulaConverters, CarryATextOfTenBytesInPiecesOfFour) {
    AppEula eula = SampleEula();
    eula.text = "0123456789";
    const std::optional<zuv::TValue> tree = ConvertEulaData(eula, 4);
    ASSERT_TRUE(tree);
    EXPECT_EQ(*tree->Find("updeula"), zuv::TValue(zuv::MakeVector("0123", "4567", "89")));
    EXPECT_EQ(ParseEula(*tree), eula);
}

TEST_F(EulaConverters, ReadATextInOneString) {
    EXPECT_EQ(ParseEula(With(SampleEulaTree(), "updeula", "Text of the agreement")), SampleEula());
}

TEST_F(EulaConverters, CarryAnEmptyText) {
    AppEula eula = SampleEula();
    eula.text.clear();
    const zuv::TValue tree = With(SampleEulaTree(), "updeula", zuv::Vector());
    EXPECT_EQ(ConvertEulaData(eula, 8), tree);
    EXPECT_EQ(ParseEula(tree), eula);
    EXPECT_EQ(ParseEula(With(tree, "updeula", "")), eula);
}

TEST_F(EulaConverters, CarryLimits) {
    AppEula eula;
    eula.releaseTime = Timestamp(std::numeric_limits<std::int64_t>::min());
    eula.localeInfo = std::numeric_limits<int>::max();
    eula.text.assign(1'000'000, 't');
    EXPECT_EQ(ParseEula(ConvertEulaData(eula, 32768).value()), eula);
    EXPECT_EQ(ParseEula(ConvertEulaData(eula, std::numeric_limits<int>::max()).value()), eula);
}

TEST_F(EulaConverters, MissEveryKey) {
    ExpectKeysRequired(parser_, ParseEula, SampleEulaTree(), EulaRows());
}

TEST_F(EulaConverters, RefuseEveryOtherKind) {
    ExpectKindsRequired(parser_, ParseEula, With(SampleEulaTree(), "updeula", "text"), EulaRows());
}

TEST_F(EulaConverters, ReadKeysInOrder) {
    ExpectKeysReadInOrder(parser_, ParseEula, SampleEulaTree(), EulaRows());
}

TEST_F(EulaConverters, RefuseNodesThatAreNoMaps) {
    ExpectOnlyMaps(parser_, ParseEula);
}

TEST_F(EulaConverters, RefuseAReleaseTimeThatIsATimestamp) {
    ExpectFails(ParseEula, With(SampleEulaTree(), "updeulareleasetime", Timestamp(4004)),
                {"4 zam_converter_eula ParseEula: ParseEula failed with exception [Unspecified "
                 "error : std::exception: the value is of kind timestamp, not int64]"});
}

TEST_F(EulaConverters, RefuseIdentifiersOfTheWrongForm) {
    ExpectFails(
        ParseEula, With(SampleEulaTree(), "updeulaid", zuv::Blob(18)),
        {"4 zam_converter ParseZamIdType: ConvertBlobToZamIdType: Ivalid blob size [ 18 != 17 ]",
         ParseErrorLine("updeulaid"), RejectedLine(kEulaFile, "ParseEula")});
}

TEST_F(EulaConverters, RefusePiecesThatAreNoStrings) {
    ExpectFails(ParseEula, With(SampleEulaTree(), "updeula", zuv::MakeVector("Text", 1)),
                {BadKind({kEulaFile, "ParseStringFromZamParams"}, Kind::Int32, Kind::String),
                 ParseErrorLine("updeula"), RejectedLine(kEulaFile, "ParseEula")});
}

TEST_F(EulaConverters, RefuseAPieceSizeThatIsNotAboveZero) {
    for (const int pieceSize : {0, -1, std::numeric_limits<int>::min()}) {
        EXPECT_EQ(ConvertEulaData(SampleEula(), pieceSize), std::nullopt);
        ExpectLines({PieceSizeLine(pieceSize), kTextFailure});
    }
}

TEST_F(EulaConverters, WriteIdentifierAndReleaseTimeAsIdentity) {
    EXPECT_EQ(
        ConvertEulaIdentityInfo(SampleEula()),
        zuv::TValue(zuv::Map{{"updeulaid", MakeIdBlob(0x70)}, {"updeulareleasetime", 4004L}}));
}

class EulaLists : public ConverterTest {
protected:
    /// An agreement and one with another text, and their trees in pieces of 8 bytes.
    static std::vector<AppEula> SampleEulas() {
        std::vector<AppEula> eulas{SampleEula(), SampleEula()};
        eulas[1].text = "other";
        return eulas;
    }
    static zuv::TValue SampleTrees() {
        return zuv::MakeVector(SampleEulaTree(),
                               With(SampleEulaTree(), "updeula", zuv::MakeVector("other")));
    }
};

TEST_F(EulaLists, AreWrittenInOrder) {
    EXPECT_EQ(ConvertEulas(SampleEulas(), 8), SampleTrees());
}

TEST_F(EulaLists, AreReadInOrder) {
    EXPECT_EQ(ParseEulas(SampleTrees()), SampleEulas());
}

TEST_F(EulaLists, MayBeEmpty) {
    EXPECT_EQ(ConvertEulas({}, 8), zuv::TValue(zuv::Vector()));
    EXPECT_EQ(ParseEulas(zuv::Vector()), std::vector<AppEula>());
}

TEST_F(EulaLists, ReserveRoomForTheElements) {
    const auto eulas = ParseEulas(zuv::Vector(5, SampleEulaTree()));
    ASSERT_TRUE(eulas);
    // A list that grew element by element would have room for eight.
    EXPECT_EQ(eulas->capacity(), 5U);
}

TEST_F(EulaLists, AreNotWrittenWhenAnElementFails) {
    EXPECT_EQ(ConvertEulas(SampleEulas(), 0), std::nullopt);
    ExpectLines({PieceSizeLine(0), kTextFailure,
                 "4 zam_converter_eula ConvertEulas: ConvertEulas: Convert eulas failed"});
}

TEST_F(EulaLists, AreNotReadWhenAnElementFails) {
    zuv::TValue trees = SampleTrees();
    zuv::TValue& second = trees.Get<zuv::Vector>()[1];
    second = Without(second, "updlocinfo");
    ExpectFails(ParseEulas, trees,
                {AbsentLine("updlocinfo"), NotFoundLine(kEulaFile, "ParseEula"),
                 "4 zam_converter_eula ParseEulas: ConvertEulaData: Could not parse eulas"});
}

TEST_F(EulaLists, AreVectors) {
    for (const zuv::TValue& value : ValuesOfAllKinds()) {
        if (!value.Is<zuv::Vector>()) {
            ExpectFails(
                ParseEulas, value,
                {BadKind({"zam_converter", "ZamParamsListSize"}, value.Kind(), Kind::Vector),
                 BadKind({kEulaFile, "ParseEulas"}, value.Kind(), Kind::Vector)});
        }
    }
}

}  // namespace
}  // namespace zam_connector::test
