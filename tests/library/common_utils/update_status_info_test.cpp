#include <limits>

#include "converter_fixture.h"

namespace zam_connector::test {
namespace {

using qor::types::Timestamp;
using zam_converter::ConvertUpdateStatusIdentityInfo;
using zam_converter::ConvertUpdateStatusInfo;
using zam_converter::ParseUpdateStatusInfo;
using zuv::Kind;

const std::vector<KeyRow>& UpdateStatusInfoRows() {
    static const std::vector<KeyRow> rows{
        {"id", {Kind::Blob}},
        {"installtime", {Kind::Timestamp}},
        {"updstatus", {Kind::Int32}},
        {"installerrorcode", {Kind::Int32}},
        {"installerrortext", {Kind::String}},
        {"releasetime", {Kind::Timestamp}},
    };
    return rows;
}

constexpr char kUpdateStatusInfoFile[] = "zam_converter_update_status_info";

class StatusConverters : public ConverterTest {
protected:
    const Parser parser_{kUpdateStatusInfoFile, "ParseUpdateStatusInfo"};
};

TEST_F(StatusConverters, WriteEveryField) {
    EXPECT_EQ(ConvertUpdateStatusInfo(SampleStatus()), SampleStatusTree());
}

TEST_F(StatusConverters, ReadEveryField) {
    EXPECT_EQ(ParseUpdateStatusInfo(SampleStatusTree()), SampleStatus());
}

TEST_F(StatusConverters, MissEveryKey) {
    ExpectKeysRequired(parser_, ParseUpdateStatusInfo, SampleStatusTree(), UpdateStatusInfoRows());
}

TEST_F(StatusConverters, RefuseEveryOtherKind) {
    ExpectKindsRequired(parser_, ParseUpdateStatusInfo, SampleStatusTree(), UpdateStatusInfoRows());
}

TEST_F(StatusConverters, ReadKeysInOrder) {
    ExpectKeysReadInOrder(parser_, ParseUpdateStatusInfo, SampleStatusTree(),
                          UpdateStatusInfoRows());
}

TEST_F(StatusConverters, RefuseNodesThatAreNoMaps) {
    ExpectOnlyMaps(parser_, ParseUpdateStatusInfo);
}

TEST_F(StatusConverters, RefuseIdentifiersOfTheWrongForm) {
    ExpectFails(
        ParseUpdateStatusInfo, With(SampleStatusTree(), "id", zuv::Blob()),
        {"4 zam_converter ParseZamIdType: ConvertBlobToZamIdType: Ivalid blob size [ 0 != 17 ]",
         ParseErrorLine("id"), RejectedLine(kUpdateStatusInfoFile, "ParseUpdateStatusInfo")});
}

TEST_F(StatusConverters, IgnoreOtherKeys) {
    EXPECT_EQ(ParseUpdateStatusInfo(With(SampleStatusTree(), "updname", 1)), SampleStatus());
}

TEST_F(StatusConverters, CarryLimits) {
    UpdateStatusInfo info;
    info.installTime = Timestamp(std::numeric_limits<std::int64_t>::max());
    info.releaseTime = Timestamp(std::numeric_limits<std::int64_t>::min());
    info.status = std::numeric_limits<int>::min();
    info.installErrorCode = std::numeric_limits<int>::max();
    info.installErrorText = std::string("\0", 1);
    EXPECT_EQ(ParseUpdateStatusInfo(ConvertUpdateStatusInfo(info).value()), info);
}

TEST_F(StatusConverters, WriteIdentifierAndReleaseTimeAsIdentity) {
    EXPECT_EQ(ConvertUpdateStatusIdentityInfo(SampleStatus()),
              zuv::TValue(zuv::Map{{"id", MakeIdBlob(0x50)}, {"releasetime", Timestamp(-3003)}}));
}

}  // namespace
}  // namespace zam_connector::test
