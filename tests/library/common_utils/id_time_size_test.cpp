#include <limits>
#include <stdexcept>

#include "converter_fixture.h"

namespace zam_connector::test {
namespace {

using qor::types::Timestamp;
using zam_converter::ConvertTimeStamp;
using zam_converter::ConvertZamIdTypeToBlob;
using zam_converter::ParseTimeStamp;
using zam_converter::ParseZamIdType;
using zam_converter::ZamParamsListSize;

/// A value that a failed assignment left without any alternative.
zuv::TValue Valueless() {
    struct Thrower {
        operator zuv::Map() const { throw std::runtime_error("no map"); }
    };
    zuv::TValue value(1);
    // Only the map is made in place; a string that fails leaves the value as it was.
    EXPECT_THROW(value.Emplace<zuv::Map>(Thrower()), std::runtime_error);
    EXPECT_TRUE(value.IsValueless());
    return value;
}

class IdConverters : public ConverterTest {};

TEST_F(IdConverters, WriteTheBytesInOrderAndAZeroByte) {
    EXPECT_EQ(ConvertZamIdTypeToBlob(MakeId(0xF8)), MakeIdBlob(0xF8));
    EXPECT_EQ(ConvertZamIdTypeToBlob(ZamId{}), zuv::Blob(17));
}

TEST_F(IdConverters, ReadTheFirstSixteenBytes) {
    EXPECT_EQ(ParseZamIdType(MakeIdBlob(0xF8)), MakeId(0xF8));
    EXPECT_EQ(ParseZamIdType(ConvertZamIdTypeToBlob(MakeId(1)).value()), MakeId(1));
}

TEST_F(IdConverters, RefuseOtherSizes) {
    for (const std::size_t size : {0U, 1U, 15U, 16U, 18U, 34U, 1000U}) {
        EXPECT_EQ(ParseZamIdType(zuv::Blob(size)), std::nullopt) << size;
        ExpectLines({"4 zam_converter ParseZamIdType: ConvertBlobToZamIdType: Ivalid blob size [ " +
                     std::to_string(size) + " != 17 ]"});
    }
}

TEST_F(IdConverters, RefuseALastByteThatIsNotZero) {
    for (const unsigned char last : zuv::Blob{1, 0x80, 0xFF}) {
        zuv::Blob blob = MakeIdBlob(0);
        blob.back() = last;
        EXPECT_EQ(ParseZamIdType(blob), std::nullopt);
        ExpectLines({"4 zam_converter ParseZamIdType: ConvertBlobToZamIdType: Invalid blob"});
    }
}

TEST_F(IdConverters, RefuseOtherKinds) {
    std::vector<zuv::TValue> values = ValuesOfAllKinds();
    values.push_back(Valueless());
    for (const zuv::TValue& value : values) {
        if (!value.Is<zuv::Blob>()) {
            EXPECT_EQ(ParseZamIdType(value), std::nullopt) << value;
            ExpectLines({"4 zam_converter ParseZamIdType: " +
                         BadKindText("ConvertBlobToZamIdType", value.Kind(), zuv::Kind::Blob)});
        }
    }
}

class TimeConverters : public ConverterTest {};

TEST_F(TimeConverters, CarryTheCountUnchanged) {
    for (const long count :
         {std::numeric_limits<long>::min(), -1L, 0L, 1L, std::numeric_limits<long>::max()}) {
        EXPECT_EQ(ConvertTimeStamp(Timestamp(count)), count);
        EXPECT_EQ(ParseTimeStamp(count), Timestamp(count));
    }
}

class ListSize : public ConverterTest {};

TEST_F(ListSize, IsTheNumberOfElementsOfAVector) {
    EXPECT_EQ(ZamParamsListSize(zuv::Vector()), 0U);
    EXPECT_EQ(ZamParamsListSize(zuv::Vector(1)), 1U);
    EXPECT_EQ(ZamParamsListSize(zuv::MakeVector(zuv::Vector(5), "text", zuv::None())), 3U);
}

TEST_F(ListSize, IsRefusedForOtherKinds) {
    std::vector<zuv::TValue> values = ValuesOfAllKinds();
    values.push_back(Valueless());
    values.emplace_back(zuv::Map());
    for (const zuv::TValue& value : values) {
        if (!value.Is<zuv::Vector>()) {
            EXPECT_EQ(ZamParamsListSize(value), std::nullopt) << value;
            ExpectLines({"4 zam_converter ZamParamsListSize: " +
                         BadKindText("ZamParamsListSize", value.Kind(), zuv::Kind::Vector)});
        }
    }
}

TEST_F(ListSize, LogsNothingWhenTheLevelIsOff) {
    testing::RecordingLogger quiet(5);
    EXPECT_EQ(ZamParamsListSize(zuv::Map()), std::nullopt);
    EXPECT_THAT(quiet.Records(), ::testing::IsEmpty());
}

}  // namespace
}  // namespace zam_connector::test
