#include <functional>

#include "converter_fixture.h"

namespace zam_connector::test {
namespace {

using qor::types::Timestamp;

/// Checks that a record equals its copy, and differs from it once any one field is changed.
template <typename Record>
void ExpectEveryFieldCompared(const Record& record,
                              const std::vector<std::function<void(Record&)>>& changes) {
    Record copy = record;
    EXPECT_TRUE(record == copy);
    EXPECT_FALSE(record != copy);
    for (std::size_t index = 0; index < changes.size(); ++index) {
        copy = record;
        changes[index](copy);
        EXPECT_FALSE(record == copy) << index;
        EXPECT_TRUE(record != copy) << index;
        EXPECT_FALSE(copy == record) << index;
    }
}

TEST(Records, OfUpdatesCompareEveryField) {
    using Record = UpdateInfo;
    ExpectEveryFieldCompared<Record>(
        SampleUpdate(), {
                            [](Record& record) { record.id[15] = std::byte{}; },
                            [](Record& record) { record.releaseTime = Timestamp(); },
                            [](Record& record) { record.localeId = 0; },
                            [](Record& record) { record.localeInfo = 0; },
                            [](Record& record) { record.name.clear(); },
                            [](Record& record) { record.url.clear(); },
                            [](Record& record) { record.importance = 0; },
                            [](Record& record) { record.description.clear(); },
                            [](Record& record) { record.isFullDistributive = false; },
                            [](Record& record) { record.eulaHasPrivacyPolicy = true; },
                            [](Record& record) { record.status = 0; },
                            [](Record& record) { record.eulaId.reset(); },
                            [](Record& record) { record.notUninstallable.reset(); },
                            [](Record& record) { record.notUninstallable = false; },
                            [](Record& record) { record.targetProduct = ""; },
                            [](Record& record) { record.targetInternalVersion.reset(); },
                            [](Record& record) { record.targetDisplayName.reset(); },
                            [](Record& record) { record.targetDisplayVersion.reset(); },
                            [](Record& record) { record.requiredPluginVersion.reset(); },
                            [](Record& record) { record.requiredPluginUrl.reset(); },
                            [](Record& record) { record.requiredZamsrvVersion.reset(); },
                        });
}

TEST(Records, OfStatusesCompareEveryField) {
    using Record = UpdateStatusInfo;
    ExpectEveryFieldCompared<Record>(SampleStatus(),
                                     {
                                         [](Record& record) { record.id[0] = std::byte{}; },
                                         [](Record& record) { record.installTime = Timestamp(); },
                                         [](Record& record) { record.status = 0; },
                                         [](Record& record) { record.installErrorCode = 0; },
                                         [](Record& record) { record.installErrorText.clear(); },
                                         [](Record& record) { record.releaseTime = Timestamp(); },
                                     });
}

TEST(Records, OfAgreementsCompareEveryField) {
    using Record = AppEula;
    ExpectEveryFieldCompared<Record>(SampleEula(),
                                     {
                                         [](Record& record) { record.id[0] = std::byte{}; },
                                         [](Record& record) { record.releaseTime = Timestamp(); },
                                         [](Record& record) { record.text.clear(); },
                                         [](Record& record) { record.localeInfo = 0; },
                                     });
}

TEST(Records, OfAllUpdatesCompareBothLists) {
    using Record = AppUpdates;
    ExpectEveryFieldCompared<Record>({{SampleUpdate()}, {SampleStatus()}},
                                     {
                                         [](Record& record) { record.updates.clear(); },
                                         [](Record& record) { record.updates[0].name = "x"; },
                                         [](Record& record) { record.statuses.clear(); },
                                         [](Record& record) { record.statuses[0].status = 0; },
                                     });
}

TEST(Records, AreEmptyWhenMade) {
    EXPECT_EQ(UpdateInfo().id, ZamId{});
    EXPECT_EQ(UpdateInfo().eulaId, std::nullopt);
    EXPECT_EQ(UpdateInfo().targetProduct, std::nullopt);
    EXPECT_EQ(UpdateStatusInfo().installTime, Timestamp(0));
    EXPECT_EQ(AppEula().text, "");
    EXPECT_EQ(AppUpdates(), (AppUpdates{{}, {}}));
}

}  // namespace
}  // namespace zam_connector::test
