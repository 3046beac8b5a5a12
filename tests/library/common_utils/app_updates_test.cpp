#include <limits>

#include "converter_fixture.h"

namespace zam_connector::test {
namespace {

using qor::types::Timestamp;
using zam_converter::ConvertAppUpdates;
using zam_converter::ConvertAppUpdatesIdentityInfo;
using zam_converter::ConvertUpdateIdentityInfo;
using zam_converter::ConvertUpdateStatusIdentityInfo;
using zam_converter::ParseAppUpdates;
using zuv::Kind;

constexpr char kAppUpdatesFile[] = "zam_converter_app_updates";

/// Two updates and three statuses, told apart by their locale information and their status.
AppUpdates SampleUpdates() {
    AppUpdates updates{{SampleUpdate(), SampleUpdate()},
                       {SampleStatus(), SampleStatus(), SampleStatus()}};
    updates.updates[0].localeInfo = 12;
    updates.updates[1].localeInfo = 11;
    updates.statuses[0].status = 23;
    updates.statuses[1].status = 21;
    updates.statuses[2].status = 22;
    return updates;
}

zuv::TValue SampleTree() {
    return zuv::Map{
        {"static_info", zuv::MakeVector(With(SampleUpdateTree(), "updlocinfo", 12),
                                        With(SampleUpdateTree(), "updlocinfo", 11))},
        {"dynamic_info", zuv::MakeVector(With(SampleStatusTree(), "updstatus", 23),
                                         With(SampleStatusTree(), "updstatus", 21),
                                         With(SampleStatusTree(), "updstatus", 22))},
    };
}

const std::vector<KeyRow>& AppUpdatesRows() {
    static const std::vector<KeyRow> rows{
        {"static_info", {Kind::Vector}},
        {"dynamic_info", {Kind::Vector}},
    };
    return rows;
}

class AppUpdatesConverters : public ConverterTest {
protected:
    const Parser parser_{kAppUpdatesFile, "ParseAppUpdates"};
};

TEST_F(AppUpdatesConverters, WriteBothListsInOrder) {
    EXPECT_EQ(ConvertAppUpdates(SampleUpdates()), SampleTree());
}

TEST_F(AppUpdatesConverters, ReadBothListsInOrder) {
    EXPECT_EQ(ParseAppUpdates(SampleTree()), SampleUpdates());
}

TEST_F(AppUpdatesConverters, CarryEmptyLists) {
    const zuv::TValue tree =
        zuv::Map{{"static_info", zuv::Vector()}, {"dynamic_info", zuv::Vector()}};
    EXPECT_EQ(ConvertAppUpdates({}), tree);
    EXPECT_EQ(ParseAppUpdates(tree), AppUpdates());
}

TEST_F(AppUpdatesConverters, ReserveRoomForTheElements) {
    const zuv::TValue tree = zuv::Map{{"static_info", zuv::Vector(5, SampleUpdateTree())},
                                      {"dynamic_info", zuv::Vector(7, SampleStatusTree())}};
    const std::optional<AppUpdates> updates = ParseAppUpdates(tree);
    ASSERT_TRUE(updates);
    // A list that grew element by element would have room for eight.
    EXPECT_EQ(updates->updates.capacity(), 5U);
    EXPECT_EQ(updates->statuses.capacity(), 7U);
}

TEST_F(AppUpdatesConverters, MissBothKeys) {
    ExpectKeysRequired(parser_, ParseAppUpdates, SampleTree(), AppUpdatesRows());
}

TEST_F(AppUpdatesConverters, RefuseListsThatAreNoVectors) {
    ExpectKindsRequired(parser_, ParseAppUpdates, SampleTree(), AppUpdatesRows());
}

TEST_F(AppUpdatesConverters, ReadKeysInOrder) {
    ExpectKeysReadInOrder(parser_, ParseAppUpdates, SampleTree(), AppUpdatesRows());
}

TEST_F(AppUpdatesConverters, RefuseNodesThatAreNoMaps) {
    ExpectOnlyMaps(parser_, ParseAppUpdates);
}

TEST_F(AppUpdatesConverters, RefuseUpdatesOfWhichOneFails) {
    zuv::TValue tree = SampleTree();
    zuv::Map& map = tree.Get<zuv::Map>();
    zuv::TValue& second = map["static_info"].Get<zuv::Vector>()[1];
    second = Without(second, "updurl");
    // The statuses are not looked at any more.
    map["dynamic_info"] = 1;
    ExpectFails(ParseAppUpdates, tree,
                {AbsentLine("updurl"), NotFoundLine("zam_converter_update_info", "ParseUpdateInfo"),
                 "4 zam_converter_app_updates ParseAppUpdates: ParseAppUpdates: Could not parse "
                 "updateInfoContainer"});
}

TEST_F(AppUpdatesConverters, RefuseStatusesOfWhichOneFails) {
    zuv::TValue tree = SampleTree();
    zuv::TValue& last = tree.Get<zuv::Map>()["dynamic_info"].Get<zuv::Vector>()[2];
    last = With(last, "updstatus", "text");
    ExpectFails(ParseAppUpdates, tree,
                {BadKind({"zam_converter_update_status_info", "ParseUpdateStatusInfo"},
                         Kind::String, Kind::Int32),
                 "4 zam_converter_app_updates ParseAppUpdates: ParseAppUpdates: Could not parse "
                 "updateStatusContainer"});
}

class UpdatesIdentity : public ConverterTest {
protected:
    /// The identity tree of a record.
    static zuv::TValue IdentityTree(unsigned char firstByte, std::int64_t releaseTime) {
        return zuv::Map{{"id", MakeIdBlob(firstByte)}, {"releasetime", Timestamp(releaseTime)}};
    }
};

TEST_F(UpdatesIdentity, HoldsTheRecordsUnderTheirNumbersInHexadecimal) {
    const zuv::TValue update = IdentityTree(0x10, 1001);
    const zuv::TValue status = IdentityTree(0x50, -3003);
    EXPECT_EQ(
        ConvertAppUpdatesIdentityInfo({{0, SampleUpdate()},
                                       {0xABC, SampleUpdate()},
                                       {std::numeric_limits<unsigned long>::max(), SampleUpdate()}},
                                      {{0x1F, SampleStatus()}, {10, SampleStatus()}}),
        zuv::TValue(zuv::Map{
            {"static_info", zuv::Map{{"0", update}, {"abc", update}, {"ffffffffffffffff", update}}},
            {"dynamic_info", zuv::Map{{"1f", status}, {"a", status}}}}));
}

TEST_F(UpdatesIdentity, KeepsEachRecordUnderItsNumber) {
    UpdateInfo other = SampleUpdate();
    other.id = MakeId(0x20);
    const std::optional<zuv::TValue> tree =
        ConvertAppUpdatesIdentityInfo({{1, SampleUpdate()}, {2, other}}, {});
    ASSERT_TRUE(tree);
    EXPECT_EQ(*tree->Find("static_info")->Find("1"), IdentityTree(0x10, 1001));
    EXPECT_EQ(*tree->Find("static_info")->Find("2"), IdentityTree(0x20, 1001));
}

TEST_F(UpdatesIdentity, IsTwoEmptyMapsForNoRecords) {
    EXPECT_EQ(ConvertAppUpdatesIdentityInfo({}, {}),
              zuv::TValue(zuv::Map{{"static_info", zuv::Map()}, {"dynamic_info", zuv::Map()}}));
}

TEST_F(UpdatesIdentity, HasKeysThatNoPathCanSpellWhenTheyBeginWithADigit) {
    const std::optional<zuv::TValue> tree =
        ConvertAppUpdatesIdentityInfo({{0x1F, SampleUpdate()}}, {{0xF1, SampleStatus()}});
    ASSERT_TRUE(tree);
    const zuv::IdSpec spec{"/\\\"'`%", 0};
    std::vector<std::pair<std::string, zuv::IdState>> texts;
    zuv::Path path;
    zuv::ForEach(
        *tree,
        [&](const zuv::Path& place, const zuv::TValue& node) {
            if (place.size() == 2 && node.Is<zuv::Map>()) {
                texts.push_back(zuv::ToString(place, spec));
            }
            return zuv::for_each::Option::Continue;
        },
        path);
    EXPECT_THAT(texts,
                ::testing::ElementsAre(std::pair(std::string("dynamic_info/f1/"), zuv::IdState::Ok),
                                       std::pair(std::string(), zuv::IdState::KeyBeginsWithDigit)));
}

}  // namespace
}  // namespace zam_connector::test
