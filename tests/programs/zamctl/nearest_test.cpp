#include "nearest.h"

#include <gtest/gtest.h>

namespace zamctl::test {
namespace {

const std::vector<std::string> kNames = {"state", "start", "stop", "settings", "sync_period_s"};

TEST(NearestName, IsTheOneThatWasMostLikelyMeant) {
    struct Row {
        const char* word;
        const char* nearest;
    };
    for (const auto& [word, nearest] :
         {Row{"stat", "state"}, Row{"sate", "state"}, Row{"sttae", "state"}, Row{"statee", "state"},
          Row{"stxte", "state"}, Row{"strat", "start"}, Row{"setting", "settings"},
          Row{"stettins", "settings"}, Row{"sync", "sync_period_s"}, Row{"perdiod", ""},
          Row{"sync_perido", "sync_period_s"}, Row{"xy", ""}, Row{"x", ""}, Row{"", ""},
          Row{"frobnicate", ""}}) {
        EXPECT_EQ(NearestName(word, kNames), nearest) << word;
    }
}

TEST(NearestName, DoesNotLookAtVeryLongWords) {
    EXPECT_EQ(NearestName(std::string(1000000, 's'), kNames), "");
}

TEST(SuggestName, ListsAllNamesWhenNoneComesClose) {
    EXPECT_EQ(SuggestName("stat", kNames, "words"), "; did you mean 'state'?");
    EXPECT_EQ(SuggestName("frobnicate", {"a", "b"}, "words"), "; the words are a, b");
}

}  // namespace
}  // namespace zamctl::test
