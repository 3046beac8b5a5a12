#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "support/history_lines.h"

namespace zam_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(HistoryLines, LeaveOutWhatIsBeingWrittenAndWhatAKillHasTorn) {
    const nlohmann::json first = {{"kind", "event"}, {"text", "1"}};
    const nlohmann::json second = {{"kind", "event"}, {"text", "2"}};

    EXPECT_THAT(HistoryLines(""), IsEmpty());
    EXPECT_THAT(HistoryLines(first.dump() + "\n" + second.dump() + "\n"),
                ElementsAre(first, second));
    EXPECT_THAT(HistoryLines(first.dump() + "\n" + second.dump()), ElementsAre(first));
    EXPECT_THAT(HistoryLines("{\"kind\":\"ev\n" + second.dump() + "\n"), ElementsAre(second));
}

}  // namespace
}  // namespace zam_test
