#include "command_fixture.h"

namespace zamctl::test {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using SyncCommandTest = CommandTest;

TEST_F(SyncCommandTest, ConfirmsInEachForm) {
    EXPECT_EQ(Run({"sync"}).out, "synchronisation scheduled\n");
    EXPECT_EQ(Run({"--quiet", "sync"}).out, "");
    EXPECT_EQ(Run({"sync", "--json"}).out, "{\"result\":0}\n");
    EXPECT_EQ(provider_.commandSender.syncs, 3);
}

TEST_F(SyncCommandTest, SaysThatThereWasNothingToDo) {
    provider_.commandSender.syncCode = 1;
    const Ran ran = Run({"sync"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.out, "nothing to do\n");
    EXPECT_EQ(Run({"sync", "--json"}).out, "{\"result\":1}\n");
}

TEST_F(SyncCommandTest, PrintsAFailureCodeWithItsText) {
    provider_.commandSender.syncCode = static_cast<int>(0x80010116U);
    const Ran ran = Run({"sync", "--json"});
    ExpectFailure(ran, 2);
    EXPECT_THAT(ran.err, HasSubstr("cannot schedule a synchronisation: the service answered "
                                   "0x80010116 Network error"));
}

class EventCommandTest : public CommandTest {
protected:
    std::vector<std::string>& events_ = provider_.commandSender.events;
};

TEST_F(EventCommandTest, PostsItsTextAndConfirmsInEachForm) {
    EXPECT_EQ(Run({"event", "door opened"}).out, "event posted (11 bytes)\n");
    EXPECT_EQ(Run({"--quiet", "event", "b"}).out, "");
    EXPECT_EQ(Run({"--json", "event", "\xc3\xa4"}).out, "{\"bytes\":2,\"result\":0}\n");
    EXPECT_THAT(events_, ElementsAre("door opened", "b", "\xc3\xa4"));
}

TEST_F(EventCommandTest, TakesTextsThatLookLikeSomethingElse) {
    for (const std::string text : {"state", "settings", "", "-5", "a b  c"}) {
        EXPECT_EQ(Run({"event", text}).status, 0) << text;
    }
    EXPECT_EQ(Run({"event", "--", "--json"}).status, 0);
    EXPECT_THAT(events_, ElementsAre("state", "settings", "", "-5", "a b  c", "--json"));
}

TEST_F(EventCommandTest, Takes128BytesAndNotMore) {
    EXPECT_EQ(Run({"event", std::string(128, 'e')}).status, 0);
    const Ran ran = Run({"--json", "event", std::string(129, 'e')});
    ExpectFailure(ran, 1);
    EXPECT_THAT(ran.err, HasSubstr("the event has 129 bytes; at most 128 are allowed"));
    EXPECT_THAT(events_, ElementsAre(std::string(128, 'e')));
}

TEST_F(EventCommandTest, ReadsStandardInputWithoutTheLastLineEnd) {
    EXPECT_EQ(Run({"event", "-"}, "text\n").status, 0);
    EXPECT_EQ(Run({"event", "-"}, "text").status, 0);
    EXPECT_EQ(Run({"event", "-"}, "two\nlines\n\n").status, 0);
    EXPECT_EQ(Run({"event", "-"}, "").status, 0);
    EXPECT_EQ(Run({"event", "-"}, "\n").status, 0);
    EXPECT_EQ(Run({"event", "-"}, std::string("a\0b", 3)).status, 0);
    EXPECT_THAT(events_,
                ElementsAre("text", "text", "two\nlines\n", "", "", std::string("a\0b", 3)));
}

TEST_F(EventCommandTest, Takes128BytesOfStandardInputAndNotMore) {
    EXPECT_EQ(Run({"event", "-"}, std::string(128, 'e')).status, 0);
    EXPECT_EQ(Run({"event", "-"}, std::string(128, 'e') + '\n').status, 0);
    for (const std::size_t size : {129U, 4095U, 4096U, 4097U, 100000U}) {
        const std::string shown = "the event has " + std::to_string(size) + " bytes; at most 128";
        for (const std::string end : {"", "\n"}) {
            const Ran ran = Run({"event", "-"}, std::string(size, 'e') + end);
            ExpectFailure(ran, 1);
            EXPECT_THAT(ran.err, HasSubstr(shown));
        }
    }
    EXPECT_EQ(provider_.opens, 2);
}

TEST_F(EventCommandTest, NeedsExactlyOneText) {
    const Ran none = Run({"event"});
    ExpectFailure(none, 1);
    EXPECT_THAT(none.err, HasSubstr("TEXT is required"));
    const Ran two = Run({"event", "door", "opened"});
    ExpectFailure(two, 1);
    EXPECT_THAT(two.err, HasSubstr("unexpected argument 'opened'"));
    EXPECT_THAT(events_, IsEmpty());
}

TEST_F(EventCommandTest, SaysThatThereWasNothingToDo) {
    provider_.commandSender.eventCode = 1;
    EXPECT_EQ(Run({"event", "a"}).out, "nothing to do\n");
    EXPECT_EQ(Run({"event", "a", "--json"}).Document().at("result"), 1);
}

TEST_F(EventCommandTest, PrintsAFailureCodeWithItsText) {
    provider_.commandSender.eventCode = static_cast<int>(0x80000062U);
    const Ran ran = Run({"event", "a"});
    ExpectFailure(ran, 2);
    EXPECT_THAT(ran.err,
                AllOf(HasSubstr("cannot post the event"), HasSubstr("0x80000062 Out of space")));
}

}  // namespace
}  // namespace zamctl::test
