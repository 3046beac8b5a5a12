#include <fstream>

#include "download_fixture.h"
#include "zam_connector/call_deadline.h"
#include "zam_connector/create_zam_connector.h"
#include "zam_connector/i_zam_connector.h"
#include "zam_connector/result_code.h"

namespace zamctl::test {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using zam_connector::kUnspecifiedError;
using namespace std::chrono_literals;

TEST_F(FileDownloadTest, PutsTheWholeFileInItsPlaceAndLeavesNothingElse) {
    const DownloadReport report = Fetch();
    EXPECT_EQ(Content(target_), "0123456789");
    EXPECT_THAT(folder_.Names(), UnorderedElementsAre("file"));
    EXPECT_EQ(report.content.sizeBytes, 10U);
    EXPECT_EQ(report.content.sha256, Sha256Of("0123456789"));
    EXPECT_EQ(report.fetchedBytes, 10U);
    EXPECT_EQ(source_.asked.size(), 3U);
    EXPECT_EQ(watcher_.last, 10U);
    EXPECT_THAT(watcher_.notes, IsEmpty());
}

TEST_F(FileDownloadTest, FetchesAnEmptyFileWithoutAChunk) {
    source_.content.clear();
    Fetch();
    EXPECT_TRUE(fs::exists(target_));
    EXPECT_THAT(source_.asked, IsEmpty());
}

TEST_F(FileDownloadTest, AsksForAsManyBytesAsTheServiceRecommends) {
    for (const auto& [recommended, expected] : std::vector<std::pair<std::uint64_t, std::uint32_t>>{
             {0, 65536}, {1, 1}, {65536, 65536}, {65537, 65536}, {~0ULL, 65536}}) {
        source_.chunkSizeBytes = recommended;
        source_.asked.clear();
        Fetch();
        EXPECT_EQ(source_.asked.front().maxSizeBytes, expected);
    }
}

TEST_F(FileDownloadTest, ReplacesAFileAndKeepsItsPermissions) {
    std::ofstream(target_) << "old";
    fs::permissions(target_, fs::perms(0640));
    Fetch();
    EXPECT_EQ(Content(target_), "0123456789");
    EXPECT_EQ(fs::status(target_).permissions(), fs::perms(0640));
}

TEST_F(FileDownloadTest, GoesOnWhereAnEarlierRunLeftOff) {
    BreakFrom(3);
    EXPECT_THAT(Fail(),
                HasSubstr("cannot read the file \"name\": the service answered 0x80000045"));
    EXPECT_THAT(folder_.Names(), UnorderedElementsAre("file.part", "file.part.json"));
    EXPECT_EQ(Content(target_ + ".part"), "01234567");
    source_.onChunk = nullptr;
    source_.asked.clear();
    const DownloadReport report = Fetch();
    EXPECT_EQ(report.resumedBytes, 8U);
    EXPECT_EQ(report.fetchedBytes, 2U);
    EXPECT_EQ(Content(target_), "0123456789");
    EXPECT_THAT(folder_.Names(), UnorderedElementsAre("file"));
}

TEST_F(FileDownloadTest, BeginsAnewBehindAnEarlierRunOfAnotherContent) {
    BreakFrom(3);
    Fail();
    source_.onChunk = nullptr;
    source_.Replace("abcdefghij");
    EXPECT_EQ(Fetch().resumedBytes, 0U);
    EXPECT_EQ(Content(target_), "abcdefghij");
}

TEST_F(FileDownloadTest, BeginsAnewWhenWhatAnEarlierRunLeftIsDamaged) {
    BreakFrom(3);
    Fail();
    source_.onChunk = nullptr;
    std::ofstream(target_ + ".part") << "01x34567";
    const DownloadReport report = Fetch();
    EXPECT_EQ(report.restarts, 1U);
    EXPECT_EQ(Content(target_), "0123456789");
}

TEST_F(FileDownloadTest, TakesNoPartWithoutItsIdentityOrThatIsTooLong) {
    for (const bool hasIdentity : {false, true}) {
        std::ofstream(target_ + ".part") << "01234567890123";
        if (hasIdentity) {
            std::ofstream(target_ + ".part.json")
                << "{\"sha256\":\"" << Sha256Of(source_.content) << "\",\"size\":10}";
        }
        const DownloadReport report = Fetch();
        EXPECT_EQ(report.resumedBytes, 0U);
        EXPECT_EQ(report.fetchedBytes, 10U);
        EXPECT_EQ(Content(target_), "0123456789");
    }
}

TEST_F(FileDownloadTest, RefusesAPartThatAnotherDownloadHolds) {
    const PartFile other(target_, {Sha256Of(source_.content), 10});
    EXPECT_THAT(Fail(), HasSubstr("is in use by another download"));
    EXPECT_THAT(source_.asked, IsEmpty());
}

TEST_F(FileDownloadTest, FetchesNoChunkTwiceBecauseOfAnInterruption) {
    watcher_.cause = "the service closed the connection";
    source_.onChunk = [](std::size_t call) {
        return call == 2 || call == 3 || call == 5 ? kUnspecifiedError : 0;
    };
    const DownloadReport report = Fetch();
    EXPECT_EQ(report.interruptions, 2U);
    EXPECT_EQ(report.fetchedBytes, 10U);
    EXPECT_EQ(Content(target_), "0123456789");
    EXPECT_EQ(clock_.sleeps, (std::vector<std::chrono::nanoseconds>{10ms, 20ms, 10ms}));
    ASSERT_EQ(watcher_.notes.size(), 2U);
    EXPECT_THAT(watcher_.notes[0], HasSubstr("the service closed the connection"));
}

TEST_F(FileDownloadTest, GivesUpWhenNothingComesForTooLong) {
    source_.onChunk = [](std::size_t call) { return call < 2 ? 0 : kUnspecifiedError; };
    EXPECT_THAT(Fail(), HasSubstr("cannot read the file \"name\""));
    EXPECT_GE(clock_.Now().time_since_epoch(), 30s);
    EXPECT_LE(clock_.Now().time_since_epoch(), 31s);
    EXPECT_EQ(Content(target_ + ".part"), "0123");
}

/// A file that did not come is no call that may have been done all the same.
TEST_F(FileDownloadTest, FailsAlikeWhenTheServiceAnswersNothing) {
    source_.onChunk = [](std::size_t /*call*/) {
        const zam_connector::CallDeadline over(0ns);
        std::shared_ptr<zam_connector::IZamConnector> none;
        return zam_connector::CreateZamConnector(none, {.applicationName = "test"});
    };
    EXPECT_THAT(Fail(), HasSubstr("cannot read the file \"name\""));
    EXPECT_EQ(zam_connector::LastTransportStatus().failure,
              zam_connector::TransportFailure::TimedOut);
    EXPECT_GE(clock_.Now().time_since_epoch(), 30s);
}

TEST_F(FileDownloadTest, KeepsToItsTime) {
    timeout_ = 5s;
    source_.onChunk = [this](std::size_t /*call*/) {
        clock_.Advance(2s);
        return 0;
    };
    source_.content = std::string(100, 'x');
    EXPECT_THAT(Fail(), HasSubstr("has not come whole within 5.000 s"));
    EXPECT_EQ(source_.asked.size(), 3U);
}

TEST_F(FileDownloadTest, EndsAtAnInterruptWithWhatHasComeKept) {
    source_.onChunk = [this](std::size_t call) {
        clock_.interrupted = call == 2;
        return 0;
    };
    EXPECT_EQ(Fail(), "interrupted");
    EXPECT_EQ(Content(target_ + ".part"), "01234567");
}

}  // namespace
}  // namespace zamctl::test
