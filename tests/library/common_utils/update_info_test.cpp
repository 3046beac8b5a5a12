#include <limits>

#include "converter_fixture.h"

namespace zam_connector::test {
namespace {

using qor::types::Timestamp;
using zam_converter::ConvertUpdateIdentityInfo;
using zam_converter::ConvertUpdateInfo;
using zam_converter::ParseUpdateInfo;

using zuv::Kind;

const std::vector<KeyRow>& UpdateInfoRows() {
    static const std::vector<KeyRow> rows{
        {"id", {Kind::Blob}},
        {"releasetime", {Kind::Timestamp}},
        {"locid", {Kind::Int32}},
        {"updlocinfo", {Kind::Int32}},
        {"updname", {Kind::String}},
        {"updurl", {Kind::String}},
        {"importance", {Kind::Int32}},
        {"description", {Kind::String}},
        {"is_full_fistributive", {Kind::Bool}},
        {"updeulahaspp", {Kind::Bool}},
        {"updstatus", {Kind::Int32}},
        {"updeulaid", {Kind::Blob}, false},
        {"notuninstallable", {Kind::Bool}, false},
        {"target_product", {Kind::String}, false},
        {"target_internal_version", {Kind::String}, false},
        {"target_display_name", {Kind::String}, false},
        {"target_display_version", {Kind::String}, false},
        {"required_plugin_version", {Kind::String}, false},
        {"required_plugin_url", {Kind::String}, false},
        {"required_zamsrv_version", {Kind::String}, false},
    };
    return rows;
}

constexpr char kUpdateInfoFile[] = "zam_converter_update_info";

/// A record whose optional fields are all absent.
UpdateInfo BareUpdate() {
    UpdateInfo info = SampleUpdate();
    info.eulaId.reset();
    info.notUninstallable.reset();
    info.targetProduct.reset();
    info.targetInternalVersion.reset();
    info.targetDisplayName.reset();
    info.targetDisplayVersion.reset();
    info.requiredPluginVersion.reset();
    info.requiredPluginUrl.reset();
    info.requiredZamsrvVersion.reset();
    return info;
}

class UpdateConverters : public ConverterTest {
protected:
    const Parser parser_{kUpdateInfoFile, "ParseUpdateInfo"};
};

TEST_F(UpdateConverters, WriteEveryField) {
    EXPECT_EQ(ConvertUpdateInfo(SampleUpdate()), SampleUpdateTree());
}

TEST_F(UpdateConverters, ReadEveryField) {
    EXPECT_EQ(ParseUpdateInfo(SampleUpdateTree()), SampleUpdate());
}

TEST_F(UpdateConverters, WriteNoKeyForAbsentFields) {
    zuv::TValue tree = SampleUpdateTree();
    for (const KeyRow& row : UpdateInfoRows()) {
        if (!row.required) {
            tree = Without(tree, row.key);
        }
    }
    EXPECT_EQ(ConvertUpdateInfo(BareUpdate()), tree);
}

TEST_F(UpdateConverters, WriteAndReadEachOptionalFieldByItself) {
    const auto write = [](UpdateInfo info) { return ConvertUpdateInfo(info); };
    for (const KeyRow& row : UpdateInfoRows()) {
        if (row.required) {
            continue;
        }
        const zuv::TValue tree = Without(SampleUpdateTree(), row.key);
        const std::optional<UpdateInfo> parsed = ParseUpdateInfo(tree);
        ExpectLines({AbsentOptionalLine(row.key)});
        ASSERT_TRUE(parsed) << row.key;
        EXPECT_NE(*parsed, SampleUpdate()) << row.key;
        EXPECT_EQ(write(*parsed), tree);
    }
}

TEST_F(UpdateConverters, LogEveryOptionalFieldThatIsAbsent) {
    zuv::TValue tree = SampleUpdateTree();
    std::vector<std::string> lines;
    for (const KeyRow& row : UpdateInfoRows()) {
        if (!row.required) {
            tree = Without(tree, row.key);
            lines.push_back(AbsentOptionalLine(row.key));
        }
    }
    EXPECT_EQ(lines.size(), 9U);
    EXPECT_EQ(ParseUpdateInfo(tree), BareUpdate());
    ExpectLines(lines);
}

TEST_F(UpdateConverters, ReadAnUpdateWithoutTargetProduct) {
    UpdateInfo info = SampleUpdate();
    info.targetProduct.reset();
    EXPECT_EQ(ParseUpdateInfo(Without(SampleUpdateTree(), "target_product")), info);
    ExpectLines({AbsentOptionalLine("target_product")});
}

TEST_F(UpdateConverters, RefuseAnUpdateWithoutName) {
    ExpectFails(ParseUpdateInfo, Without(SampleUpdateTree(), "updname"),
                {"4 zam_converter_tree GetTreeNodeValue: GetTreeNodeValue: Not found: updname",
                 "4 zam_converter_update_info ParseUpdateInfo: ParseUpdateInfo failed with "
                 "exception [Not found : Not found = 0x8000004C. At zam_converter_tree(#)]"});
}

TEST_F(UpdateConverters, RefuseAReleaseTimeThatIsAnInteger) {
    ExpectFails(ParseUpdateInfo, With(SampleUpdateTree(), "releasetime", 1001L),
                {"4 zam_converter_update_info ParseUpdateInfo: ParseUpdateInfo failed with "
                 "exception [Unspecified error : std::exception: the value is of kind int64, not "
                 "timestamp]"});
}

TEST_F(UpdateConverters, MissEveryRequiredKey) {
    ExpectKeysRequired(parser_, ParseUpdateInfo, SampleUpdateTree(), UpdateInfoRows());
}

TEST_F(UpdateConverters, RefuseEveryOtherKind) {
    ExpectKindsRequired(parser_, ParseUpdateInfo, SampleUpdateTree(), UpdateInfoRows());
}

TEST_F(UpdateConverters, ReadKeysInOrder) {
    ExpectKeysReadInOrder(parser_, ParseUpdateInfo, SampleUpdateTree(), UpdateInfoRows());
}

TEST_F(UpdateConverters, RefuseNodesThatAreNoMaps) {
    ExpectOnlyMaps(parser_, ParseUpdateInfo);
}

TEST_F(UpdateConverters, RefuseAnEmptyMap) {
    ExpectFails(ParseUpdateInfo, zuv::Map(),
                {AbsentLine("id"), NotFoundLine(kUpdateInfoFile, "ParseUpdateInfo")});
}

TEST_F(UpdateConverters, IgnoreOtherKeys) {
    EXPECT_EQ(ParseUpdateInfo(With(SampleUpdateTree(), "is_full_distributive", 1)), SampleUpdate());
}

TEST_F(UpdateConverters, RefuseIdentifiersOfTheWrongForm) {
    zuv::Blob last = MakeIdBlob(1);
    last.back() = 1;
    for (const char* key : {"id", "updeulaid"}) {
        ExpectFails(ParseUpdateInfo, With(SampleUpdateTree(), key, zuv::Blob(16)),
                    {"4 zam_converter ParseZamIdType: ConvertBlobToZamIdType: Ivalid blob size [ "
                     "16 != 17 ]",
                     ParseErrorLine(key), RejectedLine(kUpdateInfoFile, "ParseUpdateInfo")});
        ExpectFails(ParseUpdateInfo, With(SampleUpdateTree(), key, last),
                    {"4 zam_converter ParseZamIdType: ConvertBlobToZamIdType: Invalid blob",
                     ParseErrorLine(key), RejectedLine(kUpdateInfoFile, "ParseUpdateInfo")});
    }
}

TEST_F(UpdateConverters, CarryLimits) {
    constexpr int kLowest = std::numeric_limits<int>::min();
    constexpr int kHighest = std::numeric_limits<int>::max();
    UpdateInfo info = SampleUpdate();
    info.releaseTime = Timestamp(std::numeric_limits<std::int64_t>::min());
    info.localeId = kLowest;
    info.localeInfo = kHighest;
    info.importance = kLowest;
    info.status = kHighest;
    info.name = std::string("\0\xFF/", 3);
    info.url.clear();
    info.description.assign(1'000'000, 'd');
    info.notUninstallable = false;
    info.targetProduct = "";
    const std::optional<zuv::TValue> tree = ConvertUpdateInfo(info);
    ASSERT_TRUE(tree);
    EXPECT_EQ(*tree->Find("target_product"), zuv::TValue(""));
    EXPECT_EQ(*tree->Find("notuninstallable"), zuv::TValue(false));
    EXPECT_EQ(ParseUpdateInfo(*tree), info);
}

TEST_F(UpdateConverters, WriteIdentifierAndReleaseTimeAsIdentity) {
    EXPECT_EQ(ConvertUpdateIdentityInfo(SampleUpdate()),
              zuv::TValue(zuv::Map{{"id", MakeIdBlob(0x10)}, {"releasetime", Timestamp(1001)}}));
}

}  // namespace
}  // namespace zam_connector::test
