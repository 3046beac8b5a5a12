#include "vocabulary/notice_kinds.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace zam_vocabulary {
namespace {

using ::testing::ElementsAreArray;

TEST(NoticeKinds, HaveTheirNamesAndNumbers) {
    const std::vector<std::pair<std::uint32_t, std::string>> rows = {
        {1, "policy"},       {2, "product-settings"}, {3, "subscriptions"},   {4, "server-data"},
        {5, "reserve-cert"}, {6, "updates-status"},   {7, "settings-synced"}, {0, "state"}};
    std::vector<NoticeKind> kinds;
    for (const auto& [number, name] : rows) {
        kinds.push_back(static_cast<NoticeKind>(number));
        EXPECT_EQ(NoticeKindName(kinds.back()), name);
        EXPECT_EQ(ParseNoticeKind(name), kinds.back());
    }
    EXPECT_THAT(NoticeKinds(), ElementsAreArray(kinds));
    kinds.pop_back();
    EXPECT_THAT(DataKinds(), ElementsAreArray(kinds));
}

TEST(NoticeKinds, AreNotReadFromOtherTexts) {
    for (const char* const none : {"", "Policy", "policies", "1"}) {
        EXPECT_EQ(ParseNoticeKind(none), std::nullopt) << none;
    }
}

}  // namespace
}  // namespace zam_vocabulary
